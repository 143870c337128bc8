// Error handling for the system's JPEG library: fatal errors leave its C code by longjmp; messages are kept.
// Between setjmp and the library's code, functions hold only trivial values that they do not modify, so that
// the jump skips no destructor and all values stay defined. Objects with destructors live in the caller.
#pragma once

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
// requires the headers above
#include <jpeglib.h>
// requires jpeglib.h
#include <jerror.h>

namespace scansteps::images {

struct JpegErrors
{
    jpeg_error_mgr base{};  // first member: the library passes its address to callbacks
    std::jmp_buf escape{};
    std::array<char, JMSG_LENGTH_MAX> fatal{};   ///< the fatal error, otherwise empty
    std::array<char, JMSG_LENGTH_MAX> damage{};  ///< the first warning of damaged or missing data

    jpeg_error_mgr* install()
    {
        jpeg_std_error(&base);
        base.error_exit = [](j_common_ptr jpeg) {
            JpegErrors& self = of(jpeg);
            self.base.format_message(jpeg, self.fatal.data());
            std::longjmp(self.escape, 1);
        };
        base.emit_message = [](j_common_ptr jpeg, int level) {
            JpegErrors& self = of(jpeg);
            if (level < 0 && self.damage[0] == '\0' && meansDamage(self.base.msg_code))
                self.base.format_message(jpeg, self.damage.data());
        };
        return &base;
    }

  private:
    static JpegErrors& of(j_common_ptr jpeg) { return *reinterpret_cast<JpegErrors*>(jpeg->err); }

    // Other warnings concern headers and affect no pixel.
    static bool meansDamage(int code)
    {
        return code == JWRN_ARITH_BAD_CODE || code == JWRN_EXTRANEOUS_DATA || code == JWRN_HIT_MARKER ||
               code == JWRN_HUFF_BAD_CODE || code == JWRN_JPEG_EOF || code == JWRN_MUST_RESYNC;
    }
};

}  // namespace scansteps::images
