// The coded scale-factor bands of a channel, in coding order: group by group, band by band.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

struct Band {
    u32 group;
    u32 number;  // within its group
    u32 begin;   // first coefficient
    u32 width;   // a multiple of 4; for eight-short blocks all windows of the group, interleaved

    u32 entry() const { return max_bands * group + number; }  // in band arrays
};

// A range over the bands of a channel: `for (const Band band : coded_bands(block, channel))`.
class CodedBands {
 public:
    class Iterator {
     public:
        Iterator(const CodedBands &bands, u32 group) : bands_(bands), group_(group) {}

        Band operator*() const {
            const u32 *offset = bands_.offsets_ + short_offset_row * group_ + number_;
            return {group_, number_, group_begin_ + offset[0], offset[1] - offset[0]};
        }

        Iterator &operator++() {
            if (++number_ == bands_.max_sfb_) {
                number_ = 0;
                group_begin_ += short_length * bands_.group_length_[group_];
                ++group_;
            }
            return *this;
        }

        bool operator!=(const Iterator &other) const { return group_ != other.group_; }

     private:
        const CodedBands &bands_;
        u32 group_;
        u32 number_ = 0;
        u32 group_begin_ = 0;
    };

    CodedBands(const CodingBlock &block, u32 channel, const u32 *offsets)
        : offsets_(offsets),
          group_length_(block.window_group_length[channel].data()),
          groups_(block.num_window_groups[channel]),
          max_sfb_(block.max_sfb[channel]) {}

    Iterator begin() const { return {*this, max_sfb_ == 0 ? groups_ : 0}; }
    Iterator end() const { return {*this, groups_}; }

 private:
    const u32 *offsets_;  // rows of short_offset_row, one per group
    const u32 *group_length_;
    u32 groups_;
    u32 max_sfb_;
};

inline CodedBands coded_bands(const CodingBlock &block, u32 channel) {
    return {block, channel, block.sfb_offset[channel].data()};
}

}  // namespace tavik
