#pragma once

#include "Codecs/H264/H264VideoDecoder.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "MediaProcessing/Video/MCL/MCLCodecInstance.h"

namespace NmMediaProcessing {

// H.264 pictures through our engine, written straight into the caller's
// image by the MCL adapter.
class CmVideoDecoderH264
    : public CmMCLVideoDecoderInstance<MCL::H264VideoDecoder, MCL::H264VideoDecoderParams, 3> {};

// The picture size of an H.264 stream, from its sequence parameter set after
// cropping.
class CmVideoAnalyzerH264
    : public CmMCLVideoAnalyzerInstance<MCL::H264VideoDecoder, MCL::H264VideoDecoderParams> {};

} // namespace NmMediaProcessing
