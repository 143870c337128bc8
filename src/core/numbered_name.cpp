// Decimal arithmetic on the digits of a file name.
#include "scansteps/numbered_name.h"

#include <algorithm>
#include <cstdint>

namespace scansteps {
namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Adds or subtracts `amount`, starting at the last digit; overflow is discarded.
void countDigits(std::string& name, std::int64_t amount, int sign)
{
    for (auto c = name.rbegin(); c != name.rend() && amount != 0; ++c) {
        if (!isDigit(*c)) continue;
        int digit = (*c - '0') + sign * static_cast<int>(amount % 10);
        amount /= 10;
        if (digit < 0 || digit > 9) {
            digit -= sign * 10;
            ++amount;
        }
        *c = static_cast<char>('0' + digit);
    }
}

// An increment wraps if and only if it ends at all zeros, a decrement at all nines.
bool allDigitsAre(const std::string& name, char digit)
{
    return std::all_of(name.begin(), name.end(), [digit](char c) { return !isDigit(c) || c == digit; });
}

}  // namespace

bool advanceName(std::string& name, int steps)
{
    if (steps == 0) return false;
    const std::int64_t distance = steps;
    countDigits(name, distance < 0 ? -distance : distance, steps < 0 ? -1 : 1);
    return allDigitsAre(name, steps < 0 ? '9' : '0');
}

bool incrementName(std::string& name)
{
    return advanceName(name, 1);
}

bool decrementName(std::string& name)
{
    return advanceName(name, -1);
}

}  // namespace scansteps
