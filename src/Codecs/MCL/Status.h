#pragma once

#include <cstdint>

namespace MCL {

// The codecs answer every call with one of these; the layer above turns the
// failures into exceptions. A distinct type keeps them apart from the signal
// library's statuses, which reuse small negative numbers for other meanings.
enum Status : int32_t {
  StatusOk = 0,
  // The decoder holds a frame that it has not handed out yet.
  StatusFrameHeld = 1,
  StatusNoMemory = -883,
  StatusInvalidStream = -882,
  // The stream cannot be read from here on until the next sync point.
  StatusInvalidStreamSync = -879,
  // Not a whole frame: no unit could be split off the input.
  StatusFrameIncomplete = -897,
  StatusWorkerFailed = -899,
  // A null pointer, or a parameter object of the wrong class.
  StatusNullPointer = -995,
  // More data, or more room, is needed.
  StatusNotEnoughData = -996,
  StatusNotInitialised = -998,
  StatusFailed = -999,
};

} // namespace MCL
