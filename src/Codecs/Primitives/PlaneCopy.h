#pragma once

#include <cstddef>
#include <cstdint>

// Copies, fills and channel rearrangements of 8-bit planes given as (pointer,
// row stride, width, height). Source and destination must not overlap unless
// a function says otherwise.
namespace NmPrimitives {

void CopyPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height);
void SetPlane(uint8_t value, uint8_t* dst, size_t dstStride, size_t width, size_t height);
// Sets one byte of every four-byte pixel (the alpha byte for channel 3).
void SetChannel4(uint8_t value, size_t channel, uint8_t* dst, size_t dstStride, size_t width,
                 size_t height);
// Widens three-byte pixels to four, writing `fourth` into the added byte.
void Copy3To4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height, uint8_t fourth);
void Copy4To3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height);
// Exchanges bytes 0 and 2 of each pixel; src may equal dst.
void SwapChannels3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height);
void SwapChannels4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height);

// Plain loops that define what the vector versions must produce.
namespace NmReference {
void CopyPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height);
void SetPlane(uint8_t value, uint8_t* dst, size_t dstStride, size_t width, size_t height);
void SetChannel4(uint8_t value, size_t channel, uint8_t* dst, size_t dstStride, size_t width,
                 size_t height);
void Copy3To4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height, uint8_t fourth);
void Copy4To3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height);
void SwapChannels3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height);
void SwapChannels4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height);
} // namespace NmReference

} // namespace NmPrimitives
