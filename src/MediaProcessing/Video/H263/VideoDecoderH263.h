#pragma once

#include "Codecs/MCL/H263VideoDecoder.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "MediaProcessing/Video/MCL/MCLCodecInstance.h"

namespace NmMediaProcessing {

// H.263 pictures through its engine over libavcodec, written straight into the caller's
// image by the MCL adapter.
class CmVideoDecoderH263
    : public CmMCLVideoDecoderInstance<MCL::H263VideoDecoder, MCL::VideoDecoderParams, 3> {};

// The picture size of an H.263 stream, from its picture headers.
class CmVideoAnalyzerH263
    : public CmMCLVideoAnalyzerInstance<MCL::H263VideoDecoder, MCL::VideoDecoderParams> {};

} // namespace NmMediaProcessing
