/* Raw PCM on standard input (16 bits, native byte order, interleaved stereo, 44.1 kHz) to AAC on standard output. */
#include <stdio.h>
#include <stdlib.h>
#include <tavik.h>

enum { CHANNELS = 2 };

int main(void) {
    static EncoderContext encoder; /* all the memory that the encoder needs */
    const EncoderConfig config = {
        .channel_mode = TAVIK_MODE_STEREO, .sample_rate = 44100, .bit_rate = 64000 /* per channel */};
    if (TAVIK_Init(&encoder, &config) != 0) {
        fprintf(stderr, "configuration refused, status %d\n", (int)encoder.status);
        return EXIT_FAILURE;
    }

    int16_t pcm[TAVIK_FRAME_LENGTH * CHANNELS];
    uint8_t frame[TAVIK_MAX_FRAME_BYTES];
    do {
        /* At the end of the input there are 0 samples: the encoder then returns its remaining frames. */
        uint32_t samples = (uint32_t)fread(pcm, sizeof(int16_t) * CHANNELS, TAVIK_FRAME_LENGTH, stdin);
        uint32_t bytes = 0;
        TAVIK_Encode(&encoder, pcm, &samples, frame, &bytes);
        if (fwrite(frame, 1, bytes, stdout) != bytes) return EXIT_FAILURE;
    } while (encoder.status != TAVIK_STATUS_END_OF_STREAM);
    return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
