// The files of the page, embedded in the program.
#pragma once

#include <cstddef>
#include <span>

namespace scansteps::viewer {

struct Asset
{
    const char* path;  ///< as it is requested, "/main.js"
    const char* type;  ///< "text/javascript"
    const unsigned char* begin;
    const unsigned char* end;
    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
};
/// Made by CMake from the folder web/ and the installed three.js.
std::span<const Asset> assets();

}  // namespace scansteps::viewer
