#pragma once

// Codes shared by the JPEG encoder and decoder.

// Colour of a frame or of an output buffer.
enum JColor : int {
  JColorUnknown = 0,
  JColorGray = 1,
  JColorRGB = 2,
  JColorBGR = 3,
  JColorYCbCr = 4,
  JColorCMYK = 5,
  JColorYCCK = 6,
};

// Chroma sampling relative to the first component.
enum JSampling : int {
  JSampling444 = 0,
  JSampling422 = 1,
  JSampling411 = 2,
  JSampling420 = 3,
  JSamplingOther = 4,
};

// Coding process of a frame, after its SOF marker.
enum JMode : int {
  JModeBaseline = 1,
  JModeExtended = 2,
  JModeProgressive = 3,
  JModeLossless = 4,
};
