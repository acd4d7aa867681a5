#include "shared/ring_scan.hpp"

#include <algorithm>

namespace morva::ring {
namespace {

// Two passes: the deviations are taken from the block's own mean, so that nothing cancels.
Moments moments_of_block(Piece block, const Selection& selection) {
    Moments moments;
    for (const Ring_point& point : block) {
        if (!selection.takes(point)) continue;
        moments.sum += load(point.value);
        ++moments.n;
    }
    if (moments.n == 0) return moments;
    moments.mean = moments.sum / static_cast<double>(moments.n);
    for (const Ring_point& point : block) {
        if (!selection.takes(point)) continue;
        const double deviation = load(point.value) - moments.mean;
        moments.squares += deviation * deviation;
    }
    return moments;
}

}  // namespace

Extreme extreme_plain(Piece piece, const Selection& selection, double sign) {
    Extreme extreme;
    for (std::size_t i = 0; i < piece.size(); ++i) {
        if (!selection.takes(piece[i])) continue;
        const double value = sign * load(piece[i].value);
        if (value > extreme.value || (extreme.at < 0 && value == extreme.value))
            extreme = {value, static_cast<int64_t>(i)};
    }
    return extreme;
}

Moments moments_plain(Piece piece, const Selection& selection) {
    Moments moments;
    for (std::size_t at = 0; at < piece.size(); at += kBlock)
        moments.add(
            moments_of_block(piece.subspan(at, std::min(kBlock, piece.size() - at)), selection));
    return moments;
}

}  // namespace morva::ring
