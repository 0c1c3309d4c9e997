#pragma once

#include <cstddef>
#include <cstdint>

// Per-pixel logic on 8-bit planes. A pixel is pixelStride bytes (1, 3 or 4)
// of which the first `channels` take part; with stride 4 and 3 channels the
// fourth byte of the destination is left alone. Masks have one byte a pixel
// unless stated, and select where that byte is not 0.
namespace NmPrimitives {

void BitwiseOr(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height);
void BitwiseAnd(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                size_t rowBytes, size_t height);
void BitwiseNot(uint8_t* dst, size_t dstStride, size_t rowBytes, size_t height);

// Copies the selected pixels. With maskPixelStride equal to pixelStride the
// mask is composite: each byte is selected by its own mask byte.
void CopyMasked(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                size_t height, size_t pixelStride, size_t channels);
// Gives the selected pixels the values (value[3] is used for four channels).
void SetMaskedPixels(const uint8_t value[4], const uint8_t* mask, size_t maskStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels);
// 255 where every channel of the source pixel equals the constant, else 0;
// the destination has one byte a pixel.
void CompareEqual(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                  size_t dstStride, size_t width, size_t height, size_t pixelStride,
                  size_t channels);
// The background where the overlay pixel equals the key, else the overlay.
void ColorKeyOverlay(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                     const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels);

namespace NmReference {
void BitwiseOr(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height);
void BitwiseAnd(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                size_t rowBytes, size_t height);
void BitwiseNot(uint8_t* dst, size_t dstStride, size_t rowBytes, size_t height);
void CopyMasked(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                size_t height, size_t pixelStride, size_t channels);
void SetMaskedPixels(const uint8_t value[4], const uint8_t* mask, size_t maskStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels);
void CompareEqual(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                  size_t dstStride, size_t width, size_t height, size_t pixelStride,
                  size_t channels);
void ColorKeyOverlay(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                     const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels);
} // namespace NmReference

} // namespace NmPrimitives
