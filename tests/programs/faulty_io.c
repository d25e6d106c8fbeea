/* Preloaded into the program under test: system calls with the fault that TAVIK_TEST_FAULT names. A disk that flips a
   bit of what is written ("write"), and one that only notices later that something is wrong ("fsync", "close"). */
#include <errno.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/* The call named is to go wrong on this file: a regular one. */
static bool has_fault(const char *call, int file) {
    struct stat status;
    return strcmp(getenv("TAVIK_TEST_FAULT"), call) == 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

ssize_t write(int file, const void *bytes, size_t count) {
    enum { header_bytes = 100 };
    const ssize_t written = syscall(SYS_write, file, bytes, count);
    if (written > header_bytes && has_fault("write", file)) {
        const unsigned char flipped = ((const unsigned char *)bytes)[header_bytes] ^ 16;
        if (pwrite(file, &flipped, 1, lseek(file, 0, SEEK_CUR) - written + header_bytes) != 1) abort();
    }
    return written;
}

int fsync(int file) {
    errno = EIO;
    return has_fault("fsync", file) ? -1 : (int)syscall(SYS_fsync, file);
}

int close(int file) {
    const bool fails = has_fault("close", file);
    const int result = (int)syscall(SYS_close, file);
    if (fails) errno = ENOSPC;
    return fails ? -1 : result;
}
