// What the exported stages make of numbers that no stream brings about, up to the headroom that they state: a digest of
// it all is on record, so that every build and every number of lanes agrees to the last bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "support/digest.h"
#include "support/guarded_memory.h"
#include "support/values.h"
#include "tavik.h"

namespace {

using namespace tavik_test;
using std::int32_t, std::uint32_t;
using Values = GuardedArray<int32_t>;

// Draws arguments.
struct Draw {
    std::mt19937 random{1};

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    // Values of any kind and any level up to the limit.
    void fill(std::span<int32_t> values, uint32_t limit) {
        ValuePattern pattern{};
        pattern.kind = static_cast<ValuePattern::Kind>(below(ValuePattern::count));
        pattern.level = static_cast<int32_t>(limit >> below(24));
        pattern.seed = static_cast<uint32_t>(random());
        pattern.distance = 1 + below(256);
        fill_values(values, pattern);
    }
    void fill(Values &values, uint32_t limit) { fill(values.values(), limit); }
};

// Adds values that nothing was written in front of.
void add(Digest &digest, Values &values) {
    values.check_guard();
    digest.add<int32_t>(values.values());
}

void run_fft(Draw &draw, Digest &digest) {
    const uint32_t n = draw.below(2) == 0 ? 512 : 64;
    Values re(n), im(n);
    draw.fill(re, (1u << 28) / n - 1);
    draw.fill(im, (1u << 28) / n - 1);
    TAVIK_ZOLF_srfft(re.data(), im.data(), static_cast<int32_t>(n));
    add(digest, re);
    add(digest, im);
}

void run_mdct(Draw &draw, Digest &digest) {
    const uint32_t n = draw.below(2) == 0 ? 1024 : 128;
    Values block(2 * n), scratch(n);
    draw.fill(block, 1 << 22);
    TAVIK_MDCT_FAST(block.data(), n, scratch.data());
    scratch.check_guard();
    add(digest, block);
}

void run_filter_bank(Draw &draw, Digest &digest) {
    Values history(4096), out(2048), scratch(1024);
    draw.fill(history, 32767);
    const auto sequence = static_cast<int32_t>(draw.below(4)), channel = static_cast<int32_t>(draw.below(2));
    const uint32_t shift = std::array{0u, 3u, 32u}[draw.below(3)];
    TAVIK_FilterBank(history.data(), out.data(), sequence, scratch.data(), channel, shift);
    TAVIK_LowPass(out.data(), 900 + draw.below(200));
    scratch.check_guard();
    out.check_guard();
    add(digest, history);
    digest.add<int32_t>(out.values().first(1024));
}

// A row of calls, as the encoder makes them.
void run_attack_detection(Draw &draw, Digest &digest) {
    Values block(1024), peaks(16);
    std::ranges::fill(peaks.values(), 0);
    TavikAttackDetectorState state{};
    uint32_t short_run_active = 0, attack_index = 0;
    const uint32_t rate_index = draw.below(12);
    for (int call = 0; call < 20; ++call) {
        std::copy_n(peaks.data() + 8, 8, peaks.data());
        draw.fill(block, 32768);
        TAVIK_CalcAttack(block.data(), peaks.data() + 8);
        digest.add(TAVIK_BlockSwitch(rate_index, peaks.data(), &short_run_active, &attack_index, &state));
        digest.add(attack_index);
    }
}

void run_autocorrelation(Draw &draw, Digest &digest) {
    Values spectrum(draw.below(1025));
    GuardedArray<std::int64_t> r(13);
    draw.fill(spectrum, INT32_MAX);
    const auto n = static_cast<uint32_t>(spectrum.values().size());
    TAVIK_Autocorrelation(n, 0, spectrum.data(), r.data());
    r.check_guard();
    digest.add<std::int64_t>(r.values());
}

void run_temporal_noise_shaping(Draw &draw, Digest &digest) {
    Values spectrum(1024);
    draw.fill(spectrum, draw.below(4) == 0 ? INT32_MAX : (1u << 24) - 1);
    if (const uint32_t rarity = draw.below(80); rarity < 40) {  // next to nothing: some lag sums are 0
        for (int32_t &line : spectrum.values()) {
            line = draw.below(1 + rarity) == 0 ? static_cast<int32_t>(draw.below(3)) - 1 : 0;
        }
    }
    const uint32_t rate_index = draw.below(12);
    const uint32_t bands = TAVIK_NumSwbLongWindow[rate_index];
    TavikTnsData tns{};
    TAVIK_TemporalNoiseShaping(&tns, spectrum.data(), static_cast<int32_t>(rate_index), bands, 1 + draw.below(bands));
    for (const uint32_t field : {tns.tns_data_present, tns.length, tns.order, tns.coef_compress}) digest.add(field);
    digest.add(std::span<const int32_t>(tns.coef));
    add(digest, spectrum);
}

void run_mid_side(Draw &draw, Digest &digest) {
    Values spectra(2048 + 1024);
    const auto left = spectra.values().first(1024), right = spectra.values().last(1024);
    draw.fill(left, (1u << 24) - 1);
    draw.fill(right, draw.below(2) == 0 ? (1u << 24) - 1 : 1000);
    const bool is_related = draw.below(2) == 0;
    for (std::size_t k = 0; is_related && k < 1024; ++k) right[k] = right[k] / 2 + left[k] / 4;
    const uint32_t rate_index = draw.below(12);
    const uint32_t max_sfb = 1 + draw.below(TAVIK_NumSwbLongWindow[rate_index]);
    const auto mean = static_cast<int32_t>(168 + draw.below(6000));
    GuardedArray<uint32_t> ms_used(52);
    int32_t targets[] = {mean, mean};
    uint32_t mask = 0;
    TAVIK_MSStereo(spectra.data(), rate_index, ms_used.data(), targets, &mask, max_sfb, draw.below(2));
    ms_used.check_guard();
    digest.add(mask);
    digest.add(std::span<const int32_t>(targets));
    digest.add<uint32_t>(ms_used.values().first(max_sfb));
    add(digest, spectra);
}

struct Stage {
    const char *name;
    void (*run)(Draw &, Digest &);
    std::uint64_t digest;
};

void PrintTo(const Stage &stage, std::ostream *out) { *out << stage.name; }

class Stages : public testing::TestWithParam<Stage> {};

TEST_P(Stages, GiveWhatIsOnRecord) {
    Draw draw;
    Digest digest;
    for (int i = 0; i < 2000; ++i) ASSERT_NO_THROW(GetParam().run(draw, digest));
    EXPECT_EQ(digest.value(), GetParam().digest) << std::hex << digest.value();
}

INSTANTIATE_TEST_SUITE_P(Digests, Stages,
                         testing::Values(Stage{"fft", run_fft, 0xda1d21d0217b2e9f},
                                         Stage{"mdct", run_mdct, 0xe393a04c7a15d1e1},
                                         Stage{"filter_bank", run_filter_bank, 0x90e5629e8490d24c},
                                         Stage{"attack_detection", run_attack_detection, 0xedd06e1e6e594b93},
                                         Stage{"autocorrelation", run_autocorrelation, 0x3eeaffcbbc711bac},
                                         Stage{"noise_shaping", run_temporal_noise_shaping, 0x6e1e7fe5a67500e4},
                                         Stage{"mid_side", run_mid_side, 0xbcb8717c9a23a0b6}),
                         [](const auto &stage) { return stage.param.name; });

}  // namespace
