// What the fuzz target of the viewer's checks of headers does with its input, shared with the test that
// replays the corpus.
#pragma once

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "viewer/access.h"

namespace scansteps::fuzzing {

/// Names and cookies that are let in have the port or the token; '@' stands for it. "*" at the beginning: a
/// server that listens on all addresses.
inline void checkHeaders(const std::uint8_t* data, std::size_t size)
{
    constexpr int kPort = 4711;
    static const std::array<viewer::Access, 2> servers = [] {
        std::array<viewer::Access, 2> made{viewer::Access("127.0.0.1"), viewer::Access("0.0.0.0")};
        for (viewer::Access& access : made) access.setPort(kPort);
        return made;
    }();
    std::string_view given(reinterpret_cast<const char*>(data), size);
    const bool isAny = given.starts_with('*');
    if (isAny) given.remove_prefix(1);
    const viewer::Access& server = servers[isAny ? 1 : 0];
    const bool hasMark = given.find('@') != given.npos;
    std::string text;
    for (const char c : given) text += c == '@' ? server.token() : std::string(1, c);
    if (!hasMark && (server.isToken(text) || server.hasToken(text))) std::abort();
    const std::string exact = server.cookieName() + "=" + server.token();
    if (!server.hasToken("a=b; " + exact) || !server.hasToken(exact + ";" + text)) std::abort();
    if (server.isOwnHost(text)) {
        if (!text.ends_with(":4711") || text.find_first_of("/@?# \t\r\n,") != text.npos) std::abort();
        if (!isAny && text.size() > sizeof "127.0.0.1:4711" - 1) std::abort();
    }
    const std::string_view scheme = "http://";
    if (!text.empty() && server.isOwnOrigin(text) &&
        !(text.starts_with(scheme) && server.isOwnHost(text.substr(scheme.size()))))
        std::abort();
}

}  // namespace scansteps::fuzzing
