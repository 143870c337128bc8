// UTF-8 decoding and escaping of control characters.
#include "scansteps/printable.h"

#include <cstdint>
#include <cstdio>

namespace scansteps {

namespace {

struct Character
{
    std::uint32_t code;
    std::size_t length;  // in bytes; 0: not UTF-8
};

// Decodes the first character. Overlong forms, surrogates and codes above U+10FFFF are rejected.
Character decode(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {0, 0};
    std::uint32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) return {0, 0};
        code = code << 6U | (byte(i) & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    if (overlong || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {0, 0};
    return {code, length};
}

bool isControl(std::uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) ||        // C0, DEL, C1
           code == 0x061C || code == 0x200E || code == 0x200F ||  // direction marks
           (code >= 0x2028 && code <= 0x202E) ||                  // line ends, direction overrides
           (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;  // direction isolates, byte order mark
}

void appendEscape(std::string& out, const char* format, unsigned code)
{
    char text[16];
    std::snprintf(text, sizeof text, format, code);
    out += text;
}

}  // namespace

std::string printable(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (;;) {
        std::size_t plain = 0;
        while (plain < text.size() && text[plain] >= ' ' && text[plain] <= '~') ++plain;
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return out;
        const auto [code, length] = decode(text);
        if (length == 0)
            appendEscape(out, "\\x%02X", static_cast<std::uint8_t>(text[0]));
        else if (code == '\n')
            out += "\\n";
        else if (code == '\t')
            out += "\\t";
        else if (code == '\r')
            out += "\\r";
        else if (isControl(code))
            appendEscape(out, "\\u%04X", code);
        else
            out += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
}

}  // namespace scansteps
