// Error handling for the JPEG library: fatal errors leave its C code by longjmp, messages are kept and never
// printed. Functions that call setjmp hold only trivial values; objects with destructors live in their
// callers.
#pragma once

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
// requires the headers above
#include <jpeglib.h>
// requires jpeglib.h
#include <jerror.h>

namespace scansteps::imageio {

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
            auto& self = *reinterpret_cast<JpegErrors*>(jpeg->err);
            self.base.format_message(jpeg, self.fatal.data());
            std::longjmp(self.escape, 1);
        };
        base.emit_message = [](j_common_ptr jpeg, int level) {
            auto& self = *reinterpret_cast<JpegErrors*>(jpeg->err);
            const int code = self.base.msg_code;
            // Other warnings concern headers and affect no pixel.
            const bool meansDamage = code == JWRN_ARITH_BAD_CODE || code == JWRN_EXTRANEOUS_DATA ||
                                     code == JWRN_HIT_MARKER || code == JWRN_HUFF_BAD_CODE ||
                                     code == JWRN_JPEG_EOF || code == JWRN_MUST_RESYNC;
            if (level < 0 && self.damage[0] == '\0' && meansDamage)
                self.base.format_message(jpeg, self.damage.data());
        };
        base.output_message = [](j_common_ptr) {};
        return &base;
    }
};

}  // namespace scansteps::imageio
