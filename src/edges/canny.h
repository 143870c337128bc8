// Sobel derivatives, box low pass and the Canny edge detector on float planes (J. Canny, "A Computational
// Approach to Edge Detection", IEEE PAMI 8, 1986; L1 magnitude, directions in 15-bit fixed point, two
// thresholds). Beyond its border a plane is extended by its outermost samples.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "edges/float_plane.h"

namespace scansteps::edges {

/// The two kernels of a derivative of order dx along x and dy along y, not normalised: binomial coefficients
/// for order 0, their differences for higher orders. An axis of order 1 or higher uses 3 taps when ksize
/// is 1. Throws "The kernel size must be odd and not larger than 31", or the failed check with module name
/// and line when an order is negative, when both are 0, and when an order is not smaller than the kernel
/// size.
void getSobelKernels(std::vector<float>& kx, std::vector<float>& ky, int dx, int dy, int ksize);

/// Separable correlation: rows with kx, then columns with ky, both centred on tap size / 2. Symmetric and
/// antisymmetric kernels of odd size are summed in pairs of taps, from the centre outwards; other kernels
/// from left to right. Zero taps are skipped. `dst` is resized to `src` and may be the same plane. Throws
/// when a kernel is empty or longer than 65535.
void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky,
               Scratch scratch = {});

/// getSobelKernels followed by sepFilter.
void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize, Scratch scratch = {});

/// Box filter in place: the sum over size x size samples (rows first, each sum centre first, then pairs
/// outwards) times 0.11111111, 0.04 or 0.020408165 for sizes 3, 5, 7 and 1 / (size x size) otherwise. The
/// window of an even size extends one sample further to the left and up. Throws when the size is below 1 or
/// above 65535.
void lowPass(FloatPlane& plane, int size, Scratch scratch = {});

/// Buffers of the detector. Reuse one from frame to frame: it allocates only when the frame size changes.
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

/// Edge image of `src`: 255 on edges, 0 elsewhere. Thresholds are gradient magnitudes |dx| + |dy|; they are
/// swapped when low > high, and floored. `dst` is resized to `src` and may be the same plane. Throws
/// "aperture_size wrong" unless the aperture is 3, 5 or 7, and "derivative out of range" when a magnitude is
/// NaN or at least 2^30 (samples of 16-bit frames give less than 2^27).
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture,
           CannyWorkspace& work);
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture);

/// Reference implementations. Canny limits magnitudes to 32-bit integers and takes NaN as 0.
namespace scalar {
void sepFilter(const FloatPlane& src, FloatPlane& dst, std::span<const float> kx, std::span<const float> ky);
void Sobel(const FloatPlane& src, FloatPlane& dst, int dx, int dy, int ksize);
void lowPass(FloatPlane& plane, int size);
void Canny(const FloatPlane& src, FloatPlane& dst, double low, double high, int aperture);
}  // namespace scalar

}  // namespace scansteps::edges
