#include "timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace tavik {
namespace {

// Less than the shortest usual frame, more than the jitter of the time stamps that recorders write.
constexpr double tolerance = 0.010;  // seconds

// What overlaps for longer is other audio with a clock of its own, and so is what comes much later in a format whose
// clock may jump.
constexpr double longest_overlap = 1;     // seconds
constexpr double longest_jump_hole = 10;  // seconds

constexpr double least_late_start = 0.001;  // seconds that are worth a word

constexpr size_t most_places = 3;  // that are named each

std::string place_text(const TimeError &error) {
    return fmt::format("{:.3f} s at {:.3f} s", std::abs(error.seconds), error.at);
}

// Such as "2 holes filled with silence: 3.000 s at 62.000 s, 0.500 s at 70.000 s".
std::string list_text(const std::vector<TimeError> &errors, const char *one, const char *many, const char *what) {
    std::string text =
        errors.size() == 1 ? fmt::format("{} {}: ", one, what) : fmt::format("{} {} {}: ", errors.size(), many, what);
    if (errors.size() > most_places) {
        double sum = 0;
        for (const TimeError &error : errors) sum += std::abs(error.seconds);
        return text + fmt::format("{:.3f} s in all, the first {}", sum, place_text(errors.front()));
    }
    for (const TimeError &error : errors) text += (&error == &errors.front() ? "" : ", ") + place_text(error);
    return text;
}

std::vector<TimeError> of_kind(const std::vector<TimeError> &errors, TimeError::Kind kind) {
    std::vector<TimeError> found;
    std::ranges::copy_if(errors, std::back_inserter(found), [&](const TimeError &error) { return error.kind == kind; });
    return found;
}

}  // namespace

TimeError::Kind Timeline::judge(double difference) const {
    if (difference < -longest_overlap || (may_jump_ && difference > longest_jump_hole)) return TimeError::Kind::jump;
    return difference > 0 ? TimeError::Kind::hole : TimeError::Kind::overlap;
}

Placement Timeline::place(std::optional<double> seconds, int64_t samples, int rate) {
    Placement placement;
    const double difference = seconds ? *seconds + offset_ - position_ : 0;
    if (!is_begun_) {
        placement.silence = std::max<int64_t>(std::llround(difference * rate), 0);
        if (placement.silence > 0) errors_.push_back({TimeError::Kind::late_start, 0, difference});
    } else if (std::abs(difference) > tolerance) {
        const TimeError::Kind kind = judge(difference);
        // An overlap of several frames is one.
        const bool goes_on = !errors_.empty() && errors_.back().kind == kind && errors_.back().at == position_;
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
    const auto starts = of_kind(errors, TimeError::Kind::late_start);
    if (!starts.empty() && starts[0].seconds >= least_late_start) {
        texts.push_back(fmt::format("audio starts late, {} of {:.3f} s put before it",
                                    start_is_edit ? "an edit" : "silence", starts[0].seconds));
    }
    const auto add = [&](TimeError::Kind kind, const char *one, const char *many, const char *what) {
        const auto found = of_kind(errors, kind);
        if (!found.empty()) texts.push_back(list_text(found, one, many, what));
    };
    add(TimeError::Kind::hole, "hole", "holes", "filled with silence");
    add(TimeError::Kind::overlap, "overlap", "overlaps", "cut");
    add(TimeError::Kind::jump, "jump", "jumps", "of the time stamps ignored");
    return texts;
}

}  // namespace tavik
