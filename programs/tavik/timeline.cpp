#include "timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace tavik {
namespace {

// Larger differences are jumps: the time stamps belong to a different clock, or are wrong.
constexpr double max_overlap = 1;            // seconds
constexpr double max_hole = 86400;           // seconds
constexpr double max_hole_with_jumps = 600;  // seconds, in formats whose clock may jump

constexpr double min_reported_late_start = 0.01;  // seconds

constexpr size_t max_lines = 3;  // for errors of one kind

std::string text_of(const TimeError &error, bool start_is_edit) {
    const double seconds = std::abs(error.seconds);
    switch (error.kind) {
        case TimeError::Kind::late_start:
            return fmt::format("audio starts late, at {:.3f} s: {} put before it", seconds,
                               start_is_edit ? "an edit" : "silence");
        case TimeError::Kind::hole:
            return fmt::format("hole of {:.3f} s at {:.3f} s filled with silence", seconds, error.at);
        case TimeError::Kind::overlap: return fmt::format("overlap of {:.3f} s at {:.3f} s cut", seconds, error.at);
        default: return fmt::format("jump of the time stamps by {:.3f} s at {:.3f} s ignored", error.seconds, error.at);
    }
}

}  // namespace

TimeError::Kind Timeline::classify(double difference) const {
    const double longest = may_jump_ ? max_hole_with_jumps : max_hole;
    if (difference < -max_overlap || difference > longest) return TimeError::Kind::jump;
    if (difference < 0) return TimeError::Kind::overlap;
    return is_begun_ ? TimeError::Kind::hole : TimeError::Kind::late_start;
}

bool Timeline::is_suspect(std::optional<double> seconds) const {
    return is_begun_ && std::abs(lateness(seconds)) > tolerance_;
}

// Whether the next frame, if there is one, is late or early like this one.
bool Timeline::is_confirmed(double difference, std::optional<double> next, double frame_seconds) const {
    if (!next) return true;
    const double next_difference = *next + offset_ - (position_ + frame_seconds);
    return std::abs(next_difference) > tolerance_ && std::signbit(next_difference) == std::signbit(difference);
}

// Whether the frame is in the same overlap as the previous one, which was cut completely.
bool Timeline::continues_overlap(TimeError::Kind kind) const {
    return kind == TimeError::Kind::overlap && !errors_.empty() && errors_.back().kind == kind &&
           errors_.back().at == position_;
}

Placement Timeline::place(std::optional<double> seconds, std::optional<double> next, int64_t samples, int rate) {
    Placement placement;
    const double difference = lateness(seconds);
    const int64_t late_samples = std::llround(difference * rate);
    const TimeError::Kind kind = classify(difference);
    const bool goes_on = continues_overlap(kind);
    const bool is_error =
        is_begun_ ? is_suspect(seconds) && is_confirmed(difference, next, static_cast<double>(samples) / rate)
                  : kind == TimeError::Kind::jump || late_samples > 0;
    if (is_error && !goes_on) errors_.push_back({kind, position_, difference});
    if (is_error && kind == TimeError::Kind::jump) {
        offset_ -= difference;
    } else if (is_error || goes_on) {
        placement = {.silence = std::max<int64_t>(late_samples, 0),
                     .cut = std::clamp<int64_t>(-late_samples, 0, samples)};
    }
    is_begun_ = true;
    position_ += static_cast<double>(placement.silence + samples - placement.cut) / rate;
    return placement;
}

const char *name_of(TimeError::Kind kind) {
    switch (kind) {
        case TimeError::Kind::late_start: return "late_start";
        case TimeError::Kind::hole: return "hole";
        case TimeError::Kind::overlap: return "overlap";
        default: return "jump";
    }
}

std::vector<std::string> describe(const std::vector<TimeError> &errors, bool start_is_edit) {
    std::vector<std::string> texts;
    std::map<TimeError::Kind, size_t> counts;
    for (const TimeError &error : errors) {
        const bool is_late_start = error.kind == TimeError::Kind::late_start;
        if (is_late_start && error.seconds < min_reported_late_start) continue;
        if (++counts[error.kind] <= max_lines) texts.push_back(text_of(error, start_is_edit));
    }
    for (const auto &[kind, count] : counts) {
        if (count > max_lines) texts.push_back(fmt::format("{} more {}s", count - max_lines, name_of(kind)));
    }
    return texts;
}

}  // namespace tavik
