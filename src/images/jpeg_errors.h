// Errors of the system's JPEG library: the fatal ones leave its C code by a jump, the text of each is kept.
// Every function that calls setjmp holds only plain values between the call and the library's code, and none
// that it changes there, so that a jump back skips no destructor and finds every value as it was. What has a
// destructor lives in the caller.
#pragma once

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
// these need the ones above first
#include <jpeglib.h>
// this needs jpeglib.h
#include <jerror.h>

namespace scansteps::images {

struct JpegErrors
{
    jpeg_error_mgr base{};  // first, the library hands out its address
    std::jmp_buf escape{};
    std::array<char, JMSG_LENGTH_MAX> fatal{};   ///< why the library gave up, else empty
    std::array<char, JMSG_LENGTH_MAX> damage{};  ///< the first sign of damaged or missing data, else empty

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

    // The other warnings are about headers and concern no pixel.
    static bool meansDamage(int code)
    {
        return code == JWRN_ARITH_BAD_CODE || code == JWRN_EXTRANEOUS_DATA || code == JWRN_HIT_MARKER ||
               code == JWRN_HUFF_BAD_CODE || code == JWRN_JPEG_EOF || code == JWRN_MUST_RESYNC;
    }
};

}  // namespace scansteps::images
