// The last name in each GEnumValue is the one that gst-launch-1.0 accepts.
#include "settings.h"

#include <type_traits>

#include "bit_rates.h"
#include "supported_formats.h"

namespace tavik {
namespace {

enum PropertyId : guint { bit_rate_id = 1, rate_control_id, channel_mode_id, tns_id, priming_id };

template <typename Enum>
constexpr auto number(Enum value) {
    return static_cast<std::underlying_type_t<Enum>>(value);
}

// To be called once for each type. `values` ends with an entry of zeros and must stay valid until the program ends.
GType register_enumeration(const char *name, const GEnumValue *values) {
    const GType type = g_enum_register_static(name, values);
    gst_type_mark_as_plugin_api(type, static_cast<GstPluginAPIFlags>(0));
    return type;
}

GType rate_control_type() {
    static const GEnumValue values[] = {
        {number(RateControl::variable), "Frame sizes vary with the signal, within a bit reservoir", "vbr"},
        {number(RateControl::constant), "Every frame padded to the same size", "cbr"},
        {}};
    static const GType type = register_enumeration("GstTavikEncRateControl", values);
    return type;
}

// Values of the property channel-mode: 0 is automatic, the encoder's modes follow.
gint mode_number(std::optional<ChannelMode> mode) { return mode ? 1 + static_cast<gint>(*mode) : 0; }

std::optional<ChannelMode> mode_of_number(gint number) {
    return number == 0 ? std::nullopt : std::optional(static_cast<ChannelMode>(number - 1));
}

GEnumValue mode_value(ChannelMode mode, const char *description) {
    return {mode_number(mode), description, channel_mode_name(mode)};
}

GType channel_mode_type() {
    static const GEnumValue values[] = {
        {mode_number(std::nullopt), "Mono for one channel, stereo for two", "auto"},
        mode_value(ChannelMode::mono, "One channel"),
        mode_value(ChannelMode::stereo, "A channel pair, mid/side coded where it saves bits"),
        mode_value(ChannelMode::two_mono, "Two independent channels, for example two languages"),
        {}};
    static const GType type = register_enumeration("GstTavikEncChannelMode", values);
    return type;
}

}  // namespace

void install_properties(GObjectClass *object_class) {
    constexpr auto flags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    const Settings defaults;
    const auto install = [&](PropertyId id, GParamSpec *property) {
        g_object_class_install_property(object_class, id, property);
    };
    install(bit_rate_id,
            g_param_spec_uint("bitrate", "Bit rate",
                              "Bit/s of all channels together: 8000 to 6 x sampling rate per channel (0 = 64000 per "
                              "channel, below 44100 Hz less in proportion)",
                              0, G_MAXUINT, defaults.bit_rate, flags));
    install(rate_control_id, g_param_spec_enum("rate-control", "Rate control", "Variable or constant bit rate",
                                               rate_control_type(), number(defaults.rate_control), flags));
    install(channel_mode_id, g_param_spec_enum("channel-mode", "Channel mode", "How the channels are coded",
                                               channel_mode_type(), mode_number(defaults.channel_mode), flags));
    install(tns_id, g_param_spec_boolean("tns", "Temporal noise shaping",
                                         "Reduce pre-echo of attacks, at bit rates that are high enough for it",
                                         defaults.tns ? TRUE : FALSE, flags));
    install(priming_id, g_param_spec_boolean(
                            "priming", "Priming frame",
                            "Begin with a frame that makes the first 1024 samples decode exactly; if the segment has "
                            "no room before the first sample, the output is delayed by 1024 samples unless the "
                            "decoder clips them",
                            defaults.priming ? TRUE : FALSE, flags));
}

bool set_setting(Settings &settings, guint property_id, const GValue *value) {
    switch (property_id) {
        case bit_rate_id: settings.bit_rate = g_value_get_uint(value); return true;
        case rate_control_id: settings.rate_control = static_cast<RateControl>(g_value_get_enum(value)); return true;
        case channel_mode_id: settings.channel_mode = mode_of_number(g_value_get_enum(value)); return true;
        case tns_id: settings.tns = g_value_get_boolean(value) != FALSE; return true;
        case priming_id: settings.priming = g_value_get_boolean(value) != FALSE; return true;
        default: return false;
    }
}

bool get_setting(const Settings &settings, guint property_id, GValue *value) {
    switch (property_id) {
        case bit_rate_id: g_value_set_uint(value, settings.bit_rate); return true;
        case rate_control_id: g_value_set_enum(value, number(settings.rate_control)); return true;
        case channel_mode_id: g_value_set_enum(value, mode_number(settings.channel_mode)); return true;
        case tns_id: g_value_set_boolean(value, settings.tns ? TRUE : FALSE); return true;
        case priming_id: g_value_set_boolean(value, settings.priming ? TRUE : FALSE); return true;
        default: return false;
    }
}

ChannelRange channel_range(const Settings &settings) {
    if (!settings.channel_mode) return {1, 2};
    const auto channels = static_cast<gint>(channel_count(*settings.channel_mode));
    return {channels, channels};
}

EncoderConfig make_config(const Settings &settings, uint32_t channels, uint32_t sample_rate, uint32_t header_type) {
    EncoderConfig config{};
    config.channel_mode = static_cast<uint32_t>(settings.channel_mode.value_or(default_channel_mode(channels)));
    config.sample_rate = sample_rate;
    config.bit_rate = settings.bit_rate == 0 ? default_bit_rate(sample_rate) : settings.bit_rate / channels;
    config.header_type = header_type;
    config.constant_rate = settings.rate_control == RateControl::constant ? 1 : 0;
    config.emit_priming_frame = settings.priming ? 1 : 0;
    config.tns_disable = settings.tns ? 0 : 1;
    return config;
}

}  // namespace tavik
