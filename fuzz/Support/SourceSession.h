#pragma once

// A source toolkit driven by a script of calls, the way a host drives it:
// every script byte is one call (navigation in all its forms, GetData, live
// following with a zero timeout, appending the next piece of a file that is
// held back, reconnecting). Only toolkit errors may leave a call; a status
// outside the two, an item missing on success or an item whose bytes are not
// all there is a finding.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "Support/ByteReader.h"
#include "Support/PluginUnderTest.h"
#include "vzk/Toolkit.h"

namespace NmFuzz {

using namespace NmToolkit;

using CmScript = CmByteReader;

// An input is a file, then a script of calls, then one byte that gives the
// script's length, so that mutations of the file and of the calls stay apart.
struct SmSplitInput {
  const uint8_t* file;
  size_t fileSize;
  CmScript script;
};

inline SmSplitInput SplitInput(const uint8_t* data, size_t size) {
  const size_t scriptSize = std::min<size_t>(data[size - 1], size - 1);
  const size_t fileSize = size - 1 - scriptSize;
  return {data, fileSize, CmScript(data + fileSize, scriptSize)};
}

class CmSession {
public:
  CmSession(ImToolkit& toolkit, CmMemoryFile& file, const uint8_t* heldBack, size_t size)
      : m_Playback(dynamic_cast<ImPlaybackSourceToolkit*>(&toolkit)),
        m_Live(dynamic_cast<ImLiveSourceToolkit*>(&toolkit)),
        m_Source(dynamic_cast<ImSourceToolkit*>(&toolkit)), m_File(file), m_HeldBack(heldBack),
        m_HeldBackSize(size) {}

  void Connect(uint8_t choice) {
    CmPropertyNameSet requested;
    const char* const names[] = {NmPropertyNames::SequenceNumber, NmPropertyNames::PrivacyMask,
                                 NmPropertyNames::HasMotion};
    for (int i = 0; i < 3; ++i) {
      if (choice >> i & 1) {
        requested.insert(names[i]);
      }
    }
    Call([&] {
      CmPropertyNameSet supported;
      m_Source->Connect(requested, supported, choice);
    });
  }

  void Run(CmScript& script) {
    for (int step = 0; step < 96 && !script.AtEnd(); ++step) {
      const uint8_t op = script.Byte();
      const uint8_t argument = op >> 4;
      // The plain moves first, in the order of the interface.
      static constexpr uint32_t (ImPlaybackSourceToolkit::*Moves[])() = {
          &ImPlaybackSourceToolkit::MoveFirst,
          &ImPlaybackSourceToolkit::MoveLast,
          &ImPlaybackSourceToolkit::MoveNext,
          &ImPlaybackSourceToolkit::MovePrevious,
          &ImPlaybackSourceToolkit::MoveNextSequence,
          &ImPlaybackSourceToolkit::MovePreviousSequence};
      if ((op & 15) < 6) {
        Move([&] { return (m_Playback->*Moves[op & 15])(); });
        continue;
      }
      switch (op & 15) {
      case 6: {
        const int64_t time = Time(argument / 5, script);
        const auto mode = static_cast<SmMoveMode>(argument % 5);
        Move([&] { return m_Playback->MoveTo(time, mode); });
        break;
      }
      case 7:
        GetData();
        break;
      case 8:
        // Plays on for a while, the way a host steps through a recording.
        for (int i = 0; i <= argument; ++i) {
          Move([&] { return argument & 8 ? m_Playback->MovePrevious() : m_Playback->MoveNext(); });
          GetData();
        }
        break;
      case 9:
        if (m_Live) {
          Call([&] { m_Live->StartLiveStream(); });
        }
        break;
      case 10:
        for (int i = 0; i <= argument; ++i) {
          GetLiveData();
        }
        break;
      case 11:
        if (m_Live) {
          Call([&] { m_Live->StopLiveStream(); });
        }
        break;
      case 12:
      case 13:
        Append(argument);
        break;
      case 14:
        Call([&] { m_Source->Disconnect(); });
        Connect(argument);
        break;
      default:
        // A piece arrives and live following picks it up at once.
        Append(argument);
        GetLiveData();
        break;
      }
    }
  }

  void Disconnect() {
    Call([&] { m_Source->Disconnect(); });
  }

private:
  template <typename F> void Call(F&& f) {
    try {
      f();
    } catch (const ImToolkitError& error) {
      volatile size_t length = error.GetDescription().size();
      (void)length;
    }
  }

  template <typename F> void Move(F&& move) {
    if (m_Playback) {
      Call([&] {
        const uint32_t status = move();
        if (status != StatusSuccess && status != StatusNoItem) {
          __builtin_trap();
        }
      });
    }
  }

  void Take(ImData* item) {
    std::unique_ptr<ImData> owned(item);
    if (owned) {
      CheckItem(*owned);
      m_LastBegin = owned->GetBeginTime();
      m_LastEnd = owned->GetEndTime();
    }
  }

  // An item the call hands over: on success there must be one.
  template <typename F> void Fetch(bool callable, F&& fetch) {
    if (callable) {
      Call([&] {
        ImData* item = nullptr;
        const uint32_t status = fetch(&item);
        if (status == StatusSuccess && item == nullptr) {
          __builtin_trap();
        }
        Take(item);
      });
    }
  }
  void GetData() {
    Fetch(m_Playback != nullptr, [&](ImData** item) { return m_Playback->GetData(item); });
  }
  void GetLiveData() {
    Fetch(m_Live != nullptr, [&](ImData** item) { return m_Live->GetLiveData(item, 0); });
  }

  // Times near what the recording holds, and the ends of the range.
  int64_t Time(int reference, CmScript& script) {
    const auto delta = static_cast<int8_t>(script.Byte());
    switch (reference) {
    case 0:
      return m_LastBegin + delta;
    case 1:
      return m_LastEnd + delta;
    default:
      return delta < 0 ? std::numeric_limits<int64_t>::min() + (delta + 128)
                       : std::numeric_limits<int64_t>::max() - delta;
    }
  }

  void Append(uint8_t argument) {
    const size_t left = m_HeldBackSize - m_Appended;
    const size_t piece = std::min(left, std::max<size_t>(1, m_HeldBackSize * (argument + 1) / 16));
    m_File.Append(m_HeldBack + m_Appended, piece);
    m_Appended += piece;
  }

  ImPlaybackSourceToolkit* m_Playback;
  ImLiveSourceToolkit* m_Live;
  ImSourceToolkit* m_Source;
  CmMemoryFile& m_File;
  const uint8_t* m_HeldBack;
  size_t m_HeldBackSize;
  size_t m_Appended = 0;
  int64_t m_LastBegin = 0;
  int64_t m_LastEnd = 0;
};

// One session of the plug-in's toolkit over `xml`: connected with the
// properties chosen, driven by the script, disconnected.
inline void RunSession(const CmPluginUnderTest& plugin, const std::string& xml, CmMemoryFile& file,
                       const uint8_t* heldBack, size_t heldBackSize, uint8_t properties,
                       CmScript& script) {
  auto toolkit = plugin.Create(xml);
  if (!toolkit) {
    __builtin_trap();
  }
  CmSession session(*toolkit, file, heldBack, heldBackSize);
  session.Connect(properties);
  session.Run(script);
  session.Disconnect();
}

} // namespace NmFuzz
