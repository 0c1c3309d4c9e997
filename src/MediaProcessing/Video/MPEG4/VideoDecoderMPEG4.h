#pragma once

#include "Codecs/MCL/MPEG4VideoDecoder.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "MediaProcessing/Video/MCL/MCLCodecInstance.h"

namespace NmMediaProcessing {

// MPEG-4 pictures through its engine over libavcodec, written straight into the caller's
// image by the MCL adapter.
class CmVideoDecoderMPEG4
    : public CmMCLVideoDecoderInstance<MCL::MPEG4VideoDecoder, MCL::VideoDecoderParams, 3> {};

// The picture size of an MPEG-4 stream, from its picture headers.
class CmVideoAnalyzerMPEG4
    : public CmMCLVideoAnalyzerInstance<MCL::MPEG4VideoDecoder, MCL::VideoDecoderParams> {};

} // namespace NmMediaProcessing
