// Plug-in description that GStreamer reads when it loads the module.
#include "tavik_enc.h"

namespace {

gboolean register_elements(GstPlugin *plugin) { return GST_ELEMENT_REGISTER(tavikenc, plugin); }

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tavik, "MPEG-4 AAC-LC encoder in fixed-point arithmetic",
                  register_elements, TAVIK_RELEASE, GST_LICENSE_UNKNOWN, "Tavik", "https://tavik.example/")
