// The element tavikenc: 16-bit PCM to AAC-LC.
#pragma once

#include <gst/audio/gstaudioencoder.h>
#include <gst/gst.h>

G_BEGIN_DECLS

#define GST_TYPE_TAVIK_ENC (gst_tavik_enc_get_type())
G_DECLARE_FINAL_TYPE(GstTavikEnc, gst_tavik_enc, GST, TAVIK_ENC, GstAudioEncoder)

// Its rank is GST_RANK_NONE: automatic pipelines never choose it.
GST_ELEMENT_REGISTER_DECLARE(tavikenc)

G_END_DECLS
