// Checks of a series on a sample of its rows.
#include "series_check.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace scansteps::scan {
namespace {

using Order = std::vector<int>;  // picture for each place of the series; -1: none

struct Misfit
{
    double sums = 0, sinusoid = 0, steps = 0, unlit = 0;  // shares of what does not hold
    double total() const { return sums + sinusoid + steps + unlit; }
    bool isBad() const { return sums > 0.05 || sinusoid > 0.2 || steps > 0.25 || unlit > 0.3; }
};

// Levels of the pictures of a pixel, grey levels. A missing picture is filled in from what the others say of
// it.
struct Levels
{
    double white = NAN, black = NAN;
    std::vector<double> bits, inverses, shifts;  // bits from the most significant
};

class Checker
{
  public:
    Checker(const PatternSeries& series, std::span<const std::vector<std::int16_t>> pictures, int width,
            int height)
        : series_(series), pictures_(pictures), width_(width), height_(height)
    {
        const int bits = series.bits(Axis::Column);
        for (int b = bits - 1; b >= 0; --b) {
            bitPlaces_.push_back(series.indexOf({PatternKind::Gray, Axis::Column, b, false}));
            inversePlaces_.push_back(series.indexOf({PatternKind::Gray, Axis::Column, b, true}));
        }
        for (int k = 0; k < series.shifts; ++k) {
            shiftPlaces_.push_back(series.indexOf({PatternKind::Phase, Axis::Column, k, false}));
            const double angle = 2 * std::numbers::pi * k / series.shifts;
            sine_.push_back(std::sin(angle));
            cosine_.push_back(std::cos(angle));
        }
        white_ = series.indexOf({PatternKind::White, Axis::Column, 0, false});
        black_ = series.indexOf({PatternKind::Black, Axis::Column, 0, false});
    }

    Misfit misfit(const Order& order) const
    {
        constexpr int kMaxGap = 6;  // pixels next to the border of a period, where a bit is undecided
        Misfit misfit;
        double sums = 0, sinusoids = 0, steps = 0, changing = 0;
        Levels levels;
        const auto rowStep = std::max(1, std::min(16, height_ / 32));
        for (int y = rowStep / 2; y < height_; y += rowStep) {
            double last = NAN;
            int lastX = 0;
            for (int x = 0; x < width_; ++x) {
                read(order, std::size_t(y) * std::size_t(width_) + std::size_t(x), levels);
                const bool isLit = levels.white - levels.black > kLit;
                if (isLit || doesChange(levels)) {
                    changing += 1;
                    misfit.unlit += !isLit;
                }
                if (!isLit) continue;
                for (std::size_t b = 0; b < levels.bits.size(); ++b) {
                    sums += 1;
                    misfit.sums += isSumWrong(levels, b);
                }
                const double column = columnOf(levels, misfit, sinusoids);
                if (std::isnan(column)) continue;
                if (x - lastX <= kMaxGap &&
                    std::floor(column / series_.period) != std::floor(last / series_.period)) {
                    steps += 1;
                    misfit.steps += std::abs(column - last) > series_.period / 2.0;
                }
                last = column;
                lastX = x;
            }
        }
        misfit.sums /= std::max(sums, 1.0);
        misfit.sinusoid /= std::max(sinusoids, 1.0);
        misfit.steps /= std::max(steps, 1.0);
        misfit.unlit /= std::max(changing, 1.0);
        return misfit;
    }

    // The place of the first bit whose pictures disagree with white and black; -1: none.
    int firstMoved(const Order& order) const
    {
        std::vector<double> bad(bitPlaces_.size());
        double all = 0;
        Levels levels;
        for (std::size_t i = 0; i < pictures_[0].size(); i += 7) {
            read(order, i, levels);
            if (!(levels.white - levels.black > kLit)) continue;
            all += 1;
            for (std::size_t b = 0; b < bad.size(); ++b) bad[b] += isSumWrong(levels, b);
        }
        for (std::size_t b = 0; b < bad.size(); ++b)
            if (bad[b] > 0.05 * all) return bitPlaces_[b];
        return -1;
    }

  private:
    double level(const Order& order, int place, std::size_t i) const
    {
        const int picture = order[std::size_t(place)];
        return picture < 0 ? NAN : double(pictures_[std::size_t(picture)][i]) / 4;
    }

    void read(const Order& order, std::size_t i, Levels& levels) const
    {
        const auto readAll = [&](const std::vector<int>& places, std::vector<double>& out) {
            out.clear();
            for (const int place : places) out.push_back(level(order, place, i));
        };
        levels.white = level(order, white_, i);
        levels.black = level(order, black_, i);
        readAll(bitPlaces_, levels.bits);
        readAll(inversePlaces_, levels.inverses);
        readAll(shiftPlaces_, levels.shifts);
        // A bit and its inverse add up to white and black.
        double sum = 0;
        for (std::size_t b = 0; b < levels.bits.size(); ++b) sum += levels.bits[b] + levels.inverses[b];
        sum /= double(levels.bits.size());
        if (std::isnan(levels.white)) levels.white = sum - levels.black;
        if (std::isnan(levels.black)) levels.black = sum - levels.white;
        for (std::size_t b = 0; b < levels.bits.size(); ++b) {
            if (std::isnan(levels.bits[b])) levels.bits[b] = levels.white + levels.black - levels.inverses[b];
            if (std::isnan(levels.inverses[b]))
                levels.inverses[b] = levels.white + levels.black - levels.bits[b];
        }
        fillShift(levels.shifts);
    }

    // With one unknown sample the equation that all second harmonics (for three shifts: the level) obey gives
    // the sample: the sum of samples times cos 2 delta is 0.
    void fillShift(std::vector<double>& shifts) const
    {
        for (std::size_t missing = 0; missing < shifts.size(); ++missing) {
            if (!std::isnan(shifts[missing])) continue;
            double rest = 0;
            const auto harmonic = [&](std::size_t k, double phase) {
                return std::cos(4 * std::numbers::pi * (double(k) - double(missing)) / double(shifts.size()) +
                                phase);
            };
            for (std::size_t k = 0; k < shifts.size(); ++k)
                if (k != missing) rest += shifts[k] * harmonic(k, 0);
            shifts[missing] = -rest;
            return;
        }
    }

    // Whether the patterns reach a pixel, whichever pictures are white and black.
    static bool doesChange(const Levels& levels)
    {
        const auto [low, high] = std::ranges::minmax(levels.shifts);
        return high - low > 2 * kLit;
    }

    static bool isSumWrong(const Levels& levels, std::size_t bit)
    {
        const double sum = levels.bits[bit] + levels.inverses[bit];
        return std::abs(sum - levels.white - levels.black) >
               std::max(kNoise, 0.25 * (levels.white - levels.black));
    }

    // The column of a lit pixel, NaN where a bit is undecided; adds to what does not hold.
    double columnOf(const Levels& levels, Misfit& misfit, double& sinusoids) const
    {
        int binary = 0, number = 0;
        bool isKnown = true;
        for (std::size_t b = 0; b < levels.bits.size(); ++b) {
            const double difference = levels.bits[b] - levels.inverses[b];
            isKnown = isKnown && std::abs(difference) > kLit;
            binary ^= difference > 0 ? 1 : 0;
            number = 2 * number + binary;
        }
        double sine = 0, cosine = 0, mean = 0, squares = 0;
        const double n = series_.shifts;
        for (std::size_t k = 0; k < levels.shifts.size(); ++k) {
            const double v = levels.shifts[k];
            sine += v * sine_[k] * 2 / n;
            cosine += v * cosine_[k] * 2 / n;
            mean += v / n;
            squares += v * v / n;
        }
        const double variance = squares - mean * mean, explained = (sine * sine + cosine * cosine) / 2;
        if (variance > kLit * kLit / 2) {
            sinusoids += 1;
            misfit.sinusoid += explained < 0.8 * variance ? 1 : 0;
        }
        if (!isKnown) return NAN;
        const double turns = std::atan2(sine, cosine) / (2 * std::numbers::pi);
        return series_.period * (number + turns - std::floor(turns));
    }

    static constexpr double kLit = 16, kNoise = 16;  // grey levels

    const PatternSeries& series_;
    std::span<const std::vector<std::int16_t>> pictures_;
    int width_, height_;
    int white_ = 0, black_ = 0;
    std::vector<int> bitPlaces_, inversePlaces_, shiftPlaces_;
    std::vector<double> sine_, cosine_;
};

struct Hypothesis
{
    Order order;
    std::string words;
};

std::vector<Hypothesis> hypothesesOf(const PatternSeries& series, int count)
{
    const int places = int(series.patterns.size());
    std::vector<Hypothesis> all;
    const auto name = [&](int place) {
        return std::to_string(place + 1) + " (" + describe(series.patterns[std::size_t(place)]) + ")";
    };
    for (int missing = 0; missing < places && count == places - 1; ++missing) {
        Hypothesis one{{}, "picture " + name(missing) + " is missing"};
        for (int i = 0; i < places; ++i) one.order.push_back(i < missing ? i : i == missing ? -1 : i - 1);
        all.push_back(std::move(one));
    }
    for (int extra = 1; extra < places && count == places; ++extra) {
        Hypothesis one{
            {},
            "picture " + std::to_string(extra + 1) + " repeats another, or does not belong to the series"};
        for (int i = 0; i < places; ++i) one.order.push_back(i < extra ? i : i + 1 < places ? i + 1 : -1);
        all.push_back(std::move(one));
    }
    for (int first = 1; first < places && count == places; ++first) {
        Hypothesis one{{}, "the series begins with picture " + std::to_string(first + 1)};
        for (int i = 0; i < places; ++i) one.order.push_back((i + first) % places);
        all.push_back(std::move(one));
    }
    for (int a = 0; a < places && count == places; ++a)
        for (int b = a + 1; b < places; ++b) {
            Hypothesis one{{}, "pictures " + name(a) + " and " + name(b) + " are exchanged"};
            for (int i = 0; i < places; ++i) one.order.push_back(i == a ? b : i == b ? a : i);
            all.push_back(std::move(one));
        }
    return all;
}

}  // namespace

std::string seriesFault(const PatternSeries& series, std::span<const std::vector<std::int16_t>> pictures,
                        int width, int height)
{
    const Checker checker(series, pictures, width, height);
    const int places = int(series.patterns.size()), count = int(pictures.size());
    Order asGiven(std::size_t(places), -1);
    for (int i = 0; i < count; ++i) asGiven[std::size_t(i)] = i;
    const Misfit given = count == places ? checker.misfit(asGiven) : Misfit{1, 1, 1};
    if (!given.isBad()) return "";
    const Hypothesis* best = nullptr;
    double least = 0.35 * given.total();
    const std::vector<Hypothesis> hypotheses = hypothesesOf(series, count);
    for (const Hypothesis& hypothesis : hypotheses) {
        const Misfit misfit = checker.misfit(hypothesis.order);
        if (misfit.isBad() || misfit.total() >= least) continue;
        least = misfit.total();
        best = &hypothesis;
    }
    if (best != nullptr) return best->words;
    if (count < places) return "";
    const int moved = checker.firstMoved(asGiven);
    if (moved >= 0)
        return "the object, the camera or the light changed before picture " + std::to_string(moved + 2) +
               ": bit and inverse do not add up to white and black";
    return "the pictures do not belong to the patterns, or something moved between them";
}

}  // namespace scansteps::scan
