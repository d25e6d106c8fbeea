// Properties of the element, and the encoder configuration made from them and the negotiated audio format.
#pragma once

#include <gst/gst.h>
#include <tavik.h>

#include <optional>

#include "supported_formats.h"

namespace tavik {

// Values of the property rate-control.
enum class RateControl : gint { variable, constant };

struct Settings {
    guint bit_rate = 0;  // bit/s of all channels together; 0: the default for the sampling rate
    RateControl rate_control = RateControl::variable;
    std::optional<ChannelMode> channel_mode;  // absent: mono for one channel, stereo for two
    bool tns = true;
    bool priming = false;
};

// Installs the properties on the class; their ids start at 1.
void install_properties(GObjectClass *object_class);

// Set or get the property with this id. Return false if there is none.
bool set_setting(Settings &settings, guint property_id, const GValue *value);
bool get_setting(const Settings &settings, guint property_id, GValue *value);

// Numbers of input channels that the settings allow.
struct ChannelRange {
    gint min;
    gint max;
};
ChannelRange channel_range(const Settings &settings);

// The encoder configuration for an input with `channels` channels, a number in channel_range(). The bit rate is divided
// evenly between the channels, rounded down; the caller has checked that it is legal.
EncoderConfig make_config(const Settings &settings, uint32_t channels, uint32_t sample_rate, uint32_t header_type);

}  // namespace tavik
