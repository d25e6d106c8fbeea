#include "tools/linear_prediction.h"

namespace tavik {

void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) { autocorrelation<native_lanes>(x, r); }

void wide_autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) { sum_lags<WideSum<native_lanes>>(x, r); }

bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    return prediction_gain_is_low<std::min(native_lanes, 4u)>(r);
}

void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24) {
    shaping_filter<native_lanes>(x, c_q24);
}

}  // namespace tavik
