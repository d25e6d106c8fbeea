/* Preloaded into the program under test: system calls with the fault that TAVIK_TEST_FAULT names. "write": a disk that
   flips a bit of written data; "fsync", "close": one that reports errors late; "unnamed": a file system without unnamed
   files. */
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/* Whether the call should fail on this file; only regular files have faults. */
static bool has_fault(const char *call, int file) {
    struct stat status;
    return strcmp(getenv("TAVIK_TEST_FAULT"), call) == 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

/* Flips the last bit of the first frame of more than 100 bytes. It is padding, so decoders do not notice. */
ssize_t write(int file, const void *bytes, size_t count) {
    static bool is_flipped = false;
    const ssize_t written = syscall(SYS_write, file, bytes, count);
    if (!is_flipped && written > 100 && has_fault("write", file)) {
        const unsigned char flipped = ((const unsigned char *)bytes)[written - 1] ^ 1;
        if (pwrite(file, &flipped, 1, lseek(file, 0, SEEK_CUR) - 1) != 1) abort();
        is_flipped = true;
    }
    return written;
}

int openat(int directory, const char *path, int flags, ...) {
    if ((flags & O_TMPFILE) == O_TMPFILE && strcmp(getenv("TAVIK_TEST_FAULT"), "unnamed") == 0) {
        errno = EOPNOTSUPP;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return (int)syscall(SYS_openat, directory, path, flags, mode);
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
