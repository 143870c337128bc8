// Sobel derivatives, box low pass and the Canny edge detector on float planes (J. Canny, "A Computational
// Approach to Edge Detection", IEEE PAMI 8, 1986; L1 magnitude, directions in 15-bit fixed point, two
// thresholds). Beyond its edge a plane continues with its outermost samples.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "edges/float_plane.h"

namespace scansteps::edges {

/// The two kernels of a derivative of order dx along x and dy along y, never normalised: binomial
/// coefficients for order 0, their differences above. An axis with an order above 0 uses 3 taps when ksize
/// is 1. Throws "The kernel size must be odd and not larger than 31", or the failed check with module name
/// and line for negative or missing orders and for an order that the size cannot hold.
void getSobelKernels(std::vector<float>& kx, std::vector<float>& ky, int dx, int dy, int ksize);

/// Separable correlation: rows with kx, then columns with ky, both centred on tap size / 2. Taps that are
/// equal or opposite about the centre of an odd kernel are summed in pairs, centre first, then outward; other
/// kernels from left to right. Taps of value 0 are skipped. `dst` gets the size of `src` and may be the same
/// plane. Throws when a kernel is empty or longer than 65535.
void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky,
               Scratch scratch = {});

/// getSobelKernels followed by sepFilter.
void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize, Scratch scratch = {});

/// Box filter in place: the sum over size x size samples (rows first, each sum centre first, then pairs
/// outward) times 0.11111111, 0.04 or 0.020408165 for sizes 3, 5, 7 and 1 / (size x size) otherwise; an even
/// size reaches one sample further to the left and up. Throws when the size is below 1 or above 65535.
void lowPass(FloatPlane& plane, int size, Scratch scratch = {});

/// Buffers of the detector; kept from frame to frame they cost one allocation a frame size.
class CannyWorkspace
{
  public:
    CannyWorkspace();
    CannyWorkspace(CannyWorkspace&&) noexcept;
    CannyWorkspace& operator=(CannyWorkspace&&) noexcept;
    ~CannyWorkspace();

    struct Buffers;
    Buffers& buffers() { return *buffers_; }

  private:
    std::unique_ptr<Buffers> buffers_;
};

/// Edge image of `src`: 255 on edges, 0 elsewhere. Thresholds are swapped when low > high, and floored.
/// Aperture is 3, 5 or 7, else "aperture_size wrong" is thrown. `dst` gets the size of `src` and may be the
/// same plane. Derivatives beyond 32-bit integers are limited to them, a NaN counts as 0.
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture,
           CannyWorkspace& work);
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture);

namespace scalar {
void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky);
void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize);
void lowPass(FloatPlane& plane, int size);
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture);
}  // namespace scalar

}  // namespace scansteps::edges
