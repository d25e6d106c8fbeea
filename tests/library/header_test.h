/* The public header alone, as its very first include: compiled as C11 and as C++20 by header_test.c and
   header_test.cpp, which run against the shared library. */
#include "tavik.h"

static int header_test(void) {
    static EncoderContext context;
    EncoderConfig config = {TAVIK_MODE_MONO, 8000, 8000, TAVIK_HEADER_NONE, 0, 0, 0, 0, 0, 0, {0}};
    if (sizeof(EncoderContext) != 55968 || sizeof(EncoderContext) != TAVIK_CONTEXT_BYTES) return 1;
    if (sizeof(EncoderConfig) != 52 || sizeof(BitWriter) != 16) return 2;
    if (TAVIK_get_version() != TAVIK_VERSION) return 3;
    if (TAVIK_Init(&context, &config) != 0 || context.status != TAVIK_OK) return 4;
    config.home = 2;
    if (TAVIK_Init(&context, &config) != -1 || context.status != TAVIK_ERR_HOME) return 5;
    return TAVIK_SwbOffsetLong[11][40] == 1024 && TAVIK_ZOLF_huff120[60] == 1 ? 0 : 6;
}

int main(void) { return header_test(); }
