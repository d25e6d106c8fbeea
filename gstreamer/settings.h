// Properties of the element, and the encoder configuration that follows from them and the negotiated audio format.
#pragma once

#include <gst/gst.h>
#include <tavik.h>

namespace tavik {

// Values of the property channel-mode.
enum class ChannelMode : gint {
    automatic,  // mono for one channel, stereo for two
    mono,
    stereo,
    two_mono
};

// Values of the property rate-control.
enum class RateControl : gint { variable, constant };

struct Settings {
    guint bit_rate = 0;  // bit/s of all channels; 0: by rate and channels
    RateControl rate_control = RateControl::variable;
    ChannelMode channel_mode = ChannelMode::automatic;
    bool tns = true;
    bool priming = false;
};

// Installs the properties on the class; their ids are from 1 on.
void install_properties(GObjectClass *object_class);

// Each is called with the id of one of the properties. Returns false for another id.
bool set_setting(Settings &settings, guint property_id, const GValue *value);
bool get_setting(const Settings &settings, guint property_id, GValue *value);

// Numbers of channels that a mode takes.
struct ChannelRange {
    gint fewest;
    gint most;
};
ChannelRange channel_range(ChannelMode mode);

// The configuration for an input of `channels` channels, which the mode takes. The bit rate, which is shared out evenly
// and rounded down, is for the caller to check.
EncoderConfig make_config(const Settings &settings, uint32_t channels, uint32_t sample_rate, uint32_t header_type);

}  // namespace tavik
