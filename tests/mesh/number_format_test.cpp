// Numbers as text, compared with what the C library prints.
#include "mesh/number_format.h"

#include "support/test.h"

namespace scansteps {
namespace {

using namespace mesh;

template <typename Put, typename Value>
std::string textOf(Put put, Value value)
{
    char room[text::kNumberRoom] = {};
    return {room, put(room, value)};
}

// Fast enough for millions of numbers; expectStreamed() verifies on fewer that streams write the same.
std::string printed(double value)
{
    char room[64];
    return {room, static_cast<std::size_t>(std::snprintf(room, sizeof room, "%g", value))};
}

void expectStreamed(double value)
{
    std::ostringstream out;
    out << value;
    ASSERT_EQ(out.str(), printed(value));
}

void expectTenThousandths(std::int64_t n)
{
    if (n > std::numeric_limits<std::int32_t>::max()) return;
    const auto number = static_cast<std::int32_t>(n);
    ASSERT_EQ(textOf(text::putTenThousandths, number), printed(number * 0.0001)) << n;
    if (n % 7 == 0) {  // the sign is handled first
        ASSERT_EQ(textOf(text::putTenThousandths, -number), printed(-number * 0.0001)) << -n;
    }
}

TEST(NumberFormat, unsignedNumbers)
{
    for (std::uint64_t power = 1; power <= 10000000000; power *= 10)
        for (const std::uint64_t n : {power - 1, power, power + 1, power / 2, power * 2 - 1}) {
            const auto number = static_cast<std::uint32_t>(n);
            EXPECT_EQ(textOf(text::putUnsigned, number), std::to_string(number));
        }
    for (std::uint32_t n = 0; n < 1100000; ++n) ASSERT_EQ(textOf(text::putUnsigned, n), std::to_string(n));
}

// All numbers that need no rounding. Beyond six digits the text depends only on the side of the nearest tie:
// every tie of every decade, and the neighbours of many.
TEST(NumberFormat, tenThousandths)
{
    for (std::int64_t n = 0; n <= 1000000; ++n) expectTenThousandths(n);
    std::int64_t first = 1000000;
    for (const std::int64_t step : {10, 100, 1000, 10000}) {
        for (std::int64_t n = first + step / 2; n < first * 10 && n <= 0x7FFFFFFF; n += step) {
            expectTenThousandths(n);
            if (n / step % 7 != 0) continue;
            for (const std::int64_t at : {n - step / 2, n - 1, n + 1}) expectTenThousandths(at);
        }
        first *= 10;
    }
    EXPECT_EQ(textOf(text::putTenThousandths, std::numeric_limits<std::int32_t>::min()), "-214748");
}

void expectGeneral(double value)
{
    ASSERT_EQ(textOf(text::putGeneral, value), printed(value)) << std::hexfloat << value;
}

TEST(NumberFormat, generalNumbersOfEveryDecadeAndTheirTies)
{
    for (int exponent = -12; exponent <= 12; ++exponent)
        for (int lead = 100000; lead < 1000000; lead += 997)
            for (const double offset : {0.0, 0.5, 0.25, 0.4999999999, 0.5000000001}) {
                const double value = (lead + offset) * std::pow(10.0, exponent);
                for (const double v : {value, std::nextafter(value, 0), -std::nextafter(value, 1e300),
                                       double(static_cast<float>(value))})
                    expectGeneral(v);
            }
    // Exact ties are common among texture coordinates: odd multiples of a power of two.
    for (int shift = 1; shift <= 24; ++shift)
        for (int odd = 1; odd < 20000; odd += 2) expectGeneral(std::ldexp(odd, -shift));
}

TEST(NumberFormat, generalSpecialAndRandomNumbers)
{
    const double big = std::numeric_limits<double>::max();
    for (const double value :
         {0.0,      -0.0,      1e-4,         9.9999949e-5, 9.9999951e-5, 9.99999e-5, 999999.4,
          524288.0, 600000.25, 999999.49999, 999999.5,     1e6,          1e-300,     5e-324,
          big,      -big,      HUGE_VAL,     99999.95,     9.999995,     0.9999995}) {
        expectGeneral(value);
        expectStreamed(value);
    }
    std::mt19937 random(7);
    for (int i = 0; i < 2000000; ++i) {
        const auto value = double(std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        if (std::isfinite(value)) expectGeneral(value);
        expectGeneral(static_cast<std::int32_t>(random()) * 1e-6);
        if (i % 100 == 0) expectStreamed(value);
    }
}

}  // namespace
}  // namespace scansteps
