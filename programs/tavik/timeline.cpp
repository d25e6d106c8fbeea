#include "timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace tavik {
namespace {

// What overlaps for longer is other audio with a clock of its own, and so is what comes much later in a format whose
// clock may jump. Nothing is as late as a day: such time stamps are wrong.
constexpr double longest_overlap = 1;         // seconds
constexpr double longest_hole = 86400;        // seconds
constexpr double longest_hole_by_jump = 600;  // seconds

constexpr double least_late_start = 0.01;  // seconds that are worth a word

constexpr size_t most_lines = 3;  // about errors of one kind

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

TimeError::Kind Timeline::judge(double difference) const {
    const double longest = may_jump_ ? longest_hole_by_jump : longest_hole;
    if (difference < -longest_overlap || difference > longest) return TimeError::Kind::jump;
    return difference > 0 ? TimeError::Kind::hole : TimeError::Kind::overlap;
}

bool Timeline::doubts(std::optional<double> seconds) const {
    return is_begun_ && std::abs(lateness(seconds)) > tolerance_;
}

// The next frame, if there is one, is out of place in the same direction.
bool Timeline::is_confirmed(double difference, std::optional<double> next, double frame_seconds) const {
    if (!next) return true;
    const double next_difference = *next + offset_ - (position_ + frame_seconds);
    return std::abs(next_difference) > tolerance_ && std::signbit(next_difference) == std::signbit(difference);
}

Placement Timeline::place(std::optional<double> seconds, std::optional<double> next, int64_t samples, int rate) {
    Placement placement;
    const double difference = lateness(seconds);
    const double frame_seconds = static_cast<double>(samples) / rate;
    // An overlap of several frames is one.
    const bool goes_on = difference < 0 && !errors_.empty() && errors_.back().kind == TimeError::Kind::overlap &&
                         errors_.back().at == position_;
    if (!is_begun_ && judge(difference) == TimeError::Kind::jump) {
        errors_.push_back({TimeError::Kind::jump, 0, difference});
        offset_ -= difference;
    } else if (!is_begun_) {
        placement.silence = std::max<int64_t>(std::llround(difference * rate), 0);
        if (placement.silence > 0) errors_.push_back({TimeError::Kind::late_start, 0, difference});
    } else if (goes_on || (doubts(seconds) && is_confirmed(difference, next, frame_seconds))) {
        const TimeError::Kind kind = goes_on ? TimeError::Kind::overlap : judge(difference);
        if (!goes_on) errors_.push_back({kind, position_, difference});
        switch (kind) {
            case TimeError::Kind::hole: placement.silence = std::llround(difference * rate); break;
            case TimeError::Kind::overlap:
                placement.cut = std::min<int64_t>(std::llround(-difference * rate), samples);
                break;
            default: offset_ -= difference;
        }
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
        if (is_late_start && error.seconds < least_late_start) continue;
        if (++counts[error.kind] <= most_lines) texts.push_back(text_of(error, start_is_edit));
    }
    for (const auto &[kind, count] : counts) {
        if (count > most_lines) texts.push_back(fmt::format("{} more {}s", count - most_lines, name_of(kind)));
    }
    return texts;
}

}  // namespace tavik
