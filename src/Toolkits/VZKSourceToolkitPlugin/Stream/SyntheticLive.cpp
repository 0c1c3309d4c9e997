#include "Toolkits/VZKSourceToolkitPlugin/Stream/SyntheticLive.h"

#include <chrono>
#include <memory>
#include <thread>

#include "Common/TimeStamp/TimeStamp.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {
namespace {

int64_t Now() {
  return NmTimeStamp::CmTimeStamp(NmTimeStamp::CmTimeStamp::Current).GetMilliseconds();
}

void Sleep(int64_t milliseconds) {
  if (milliseconds > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
}

bool IsNavigationTime(const std::string& name) {
  return name == NmPropertyNames::NextBeginTime || name == NmPropertyNames::NextEndTime ||
         name == NmPropertyNames::PrevBeginTime || name == NmPropertyNames::PrevEndTime;
}

} // namespace

void CmSyntheticLive::StartLiveStream() {
  RequireConnected();
  SetLive(true);
  m_NeedsRestart = true;
}

void CmSyntheticLive::StopLiveStream() {
  RequireConnected();
  SetLive(false);
}

uint32_t CmSyntheticLive::GetData(ImData** out) {
  return FirstPlaybackUpstream("GetData")->GetData(out);
}

uint32_t CmSyntheticLive::GetLiveData(ImData** out, uint32_t timeout) {
  RequireConnected();
  if (!IsLive()) {
    throw CmInvalidOperationError<2>("GetLiveData");
  }
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  ImPlaybackSourceToolkit* upstream = FirstPlaybackUpstream("GetLiveData");
  if (m_NeedsRestart && upstream->MoveFirst() != StatusSuccess) {
    Sleep(timeout);
    return StatusNoItem;
  }
  ImData* raw = nullptr;
  const uint32_t status = upstream->GetData(&raw);
  std::unique_ptr<ImData> item(raw);
  if (status != StatusSuccess || !item) {
    m_NeedsRestart = true;
    Sleep(timeout);
    return StatusNoItem;
  }
  if (m_NeedsRestart) {
    m_TimeOffset = Now() + StartLeadMilliseconds - item->GetBeginTime();
    m_NeedsRestart = false;
  }
  const int64_t due = item->GetBeginTime() + m_TimeOffset;
  for (;;) {
    const int64_t remaining = due - Now();
    if (remaining < 1) {
      break;
    }
    if (remaining > static_cast<int64_t>(timeout)) {
      // Not due within this call: the same item is fetched again next time.
      Sleep(timeout);
      return StatusNoItem;
    }
    Sleep(remaining);
  }
  if (upstream->MoveNext() != StatusSuccess) {
    // The last item still goes out; the next call starts over.
    m_NeedsRestart = true;
  }

  auto* image = dynamic_cast<CmImageData*>(item.get());
  if (image == nullptr) {
    // Encoded items keep their own times: there is no picture to re-stamp.
    *out = item.release();
    return StatusSuccess;
  }
  NmMediaProcessing::CmImage copy(image->GetImage());
  copy.GetAttributes().timeStamp = NmTimeStamp::CmTimeStamp::FromMilliseconds(due);
  CmVZKSourceToolkitProperties properties;
  for (const std::string& name : GetPassedProperties()) {
    if (IsNavigationTime(name)) {
      continue;
    }
    if (const ImProperty* property = item->GetProperty(name)) {
      properties.SetProperty(name, std::unique_ptr<ImProperty>(property->Clone()));
    }
  }
  *out = new CmImageData(copy, properties);
  return StatusSuccess;
}

} // namespace NmToolkit
