/* Live encoding in a pipe: raw PCM on standard input (16 bits, native byte order, interleaved) to AAC with ADTS headers
   on standard output. Input may arrive in pieces of any size; each frame is written as soon as it is coded.

       arecord -q -t raw -f S16_LE -r 44100 -c 2 | live_pipe | ffmpeg -f aac -i - -c copy -f mpegts udp://224.0.0.9:1234
       arecord -q -t raw -f S16_LE -r 16000 -c 1 | live_pipe 16000 1 24000 >voice.aac

   Usage: live_pipe [RATE [CHANNELS [BIT_RATE_PER_CHANNEL]]], by default 44100 2 64000.
   The end of the input, SIGINT (Ctrl-C) and SIGTERM end the stream: all samples read so far are encoded and written.
   The same signal again ends the program at once. Exit status: 0 done, 1 input or output failed, 2 arguments refused.

   cc live_pipe.c -I include build/release/src/libtavik.a -o live_pipe */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <tavik.h>
#include <unistd.h>

enum { max_channels = 2, failed = 1, refused = 2 };

/* ---- End by a signal ---- */

/* Replaces standard input by /dev/null: a blocked read is interrupted, and later ones find the end of the input. Unlike
   with a flag, the signal cannot be missed between a test and a read. */
static void end_input(int signal_number) {
    (void)signal_number;
    const int saved = errno;
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing >= 0) dup2(nothing, STDIN_FILENO);
    errno = saved;
}

static bool finish_on_signals(void) {
    struct sigaction action = {.sa_handler = end_input, .sa_flags = (int)SA_RESETHAND};
    if (sigaction(SIGINT, &action, NULL) != 0 || sigaction(SIGTERM, &action, NULL) != 0) return false;
    action.sa_handler = SIG_IGN; /* write() reports a closed pipe */
    return sigaction(SIGPIPE, &action, NULL) == 0;
}

/* ---- Input and output ---- */

/* Reads `size` bytes, fewer only at the end of the input. Returns their number, or -1 on an error. */
static ssize_t read_fully(void *data, size_t size) {
    size_t filled = 0;
    while (filled < size) {
        const ssize_t got = read(STDIN_FILENO, (char *)data + filled, size - filled);
        if (got > 0) filled += (size_t)got;
        if (got == 0) break;
        if (got < 0 && errno != EINTR) return -1;
    }
    return (ssize_t)filled;
}

static bool write_fully(const uint8_t *data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(STDOUT_FILENO, data, size);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) {
            data += written;
            size -= (size_t)written;
        }
    }
    return true;
}

static int fail(const char *what) {
    perror(what);
    return failed;
}

/* ---- Configuration ---- */

/* The argument as a number; 0, which is not valid for any setting, if it is not a number. */
static uint32_t number(int argc, char **argv, int index, uint32_t by_default) {
    if (index >= argc) return by_default;
    char *end = NULL;
    const unsigned long value = strtoul(argv[index], &end, 10);
    return end != argv[index] && *end == '\0' && value <= UINT32_MAX ? (uint32_t)value : 0;
}

static const char *reason(int32_t status) {
    switch (status) {
        case TAVIK_ERR_SAMPLE_RATE:
            return "RATE must be 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025 or 8000";
        case TAVIK_ERR_BIT_RATE: return "BIT_RATE_PER_CHANNEL must be 8000 to 6 x RATE";
        default: return "CHANNELS must be 1 or 2";
    }
}

static int refuse(const char *why) {
    fprintf(stderr, "live_pipe: %s\nusage: live_pipe [RATE [CHANNELS [BIT_RATE_PER_CHANNEL]]]\n", why);
    return refused;
}

int main(int argc, char **argv) {
    static EncoderContext encoder;
    static int16_t pcm[TAVIK_FRAME_LENGTH * max_channels];
    static uint8_t frame[TAVIK_MAX_FRAME_BYTES];

    const uint32_t channels = number(argc, argv, 2, max_channels);
    const EncoderConfig config = {.channel_mode = channels - 1, /* 1: TAVIK_MODE_MONO, 2: TAVIK_MODE_STEREO */
                                  .sample_rate = number(argc, argv, 1, 44100),
                                  .bit_rate = number(argc, argv, 3, 64000)};
    if (argc > 4) return refuse("too many arguments");
    if (channels < 1 || channels > max_channels || TAVIK_Init(&encoder, &config) != 0)
        return refuse(reason(encoder.status));
    if (!finish_on_signals()) return fail("live_pipe: signals");

    const size_t sample_bytes = sizeof(int16_t) * channels; /* of all channels */
    bool ended = false;
    do {
        const ssize_t got = ended ? 0 : read_fully(pcm, sample_bytes * TAVIK_FRAME_LENGTH);
        if (got < 0) return fail("live_pipe: input");
        uint32_t samples = (uint32_t)((size_t)got / sample_bytes); /* 0 makes the encoder return its remaining frames */
        uint32_t bytes = 0;
        ended = samples < TAVIK_FRAME_LENGTH;
        TAVIK_Encode(&encoder, pcm, &samples, frame, &bytes);
        if (!write_fully(frame, bytes)) return fail("live_pipe: output");
    } while (encoder.status != TAVIK_STATUS_END_OF_STREAM);
    return EXIT_SUCCESS;
}
