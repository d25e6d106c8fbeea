/* Preloaded into the program under test: system calls with the fault that TAVIK_TEST_FAULT names. A disk that flips a
   bit of what is written ("write"), and one that only notices later that something is wrong ("fsync", "close"). */
#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/* The call named is to go wrong on this file: a regular one that is written. */
static bool has_fault(const char *call, int file) {
    const char *fault = getenv("TAVIK_TEST_FAULT");
    struct stat status;
    return fault != NULL && strcmp(fault, call) == 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           (fcntl(file, F_GETFL) & O_ACCMODE) != O_RDONLY;
}

ssize_t write(int file, const void *bytes, size_t count) {
    enum { header_bytes = 100 };
    if (count <= header_bytes || !has_fault("write", file)) return syscall(SYS_write, file, bytes, count);
    unsigned char *copy = malloc(count);
    if (copy == NULL) abort();
    memcpy(copy, bytes, count);
    copy[header_bytes] ^= 16;
    const ssize_t written = syscall(SYS_write, file, copy, count);
    free(copy);
    return written;
}

int fsync(int file) {
    if (!has_fault("fsync", file)) return (int)syscall(SYS_fsync, file);
    errno = EIO;
    return -1;
}

int close(int file) {
    const bool fails = has_fault("close", file);
    const int result = (int)syscall(SYS_close, file);
    if (!fails) return result;
    errno = ENOSPC;
    return -1;
}
