// A source plug-in for tests: it serves the items described in its own
// configuration, navigates them in every mode, and writes each call it gets
// into a journal that tests read through an extra export.

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "Common/Xerces/Xerces.h"
#include "vzk/vzk.h"

using namespace NmToolkit;

namespace {

std::mutex journalLock;
std::string journal;
int liveInstances = 0;

void Log(const std::string& entry) {
  std::lock_guard guard(journalLock);
  try {
    journal += entry;
    journal += ';';
  } catch (const std::bad_alloc&) {
    // Out of memory (tests inject it): the journal loses the entry, and the
    // destructor, which logs too, must not throw.
  }
}

// A text property that a script gives an item.
class ScriptedText : public ImStringProperty {
public:
  explicit ScriptedText(std::string value) : m_Value(std::move(value)) {}
  ImProperty* Clone() const override { return new ScriptedText(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

struct ItemScript {
  std::string kind = "media"; // media, outofband, null, status
  uint32_t status = 1;
  int64_t begin = 0;
  int64_t end = 0;
  int sequence = 0;
  std::string payload;
  std::map<std::string, std::shared_ptr<ImProperty>> properties;
};

// The accessors that every kind of scripted item shares.
template <typename Interface> class ScriptedItem : public Interface {
public:
  explicit ScriptedItem(const ItemScript& script) : m_Script(script) {}
  int64_t GetBeginTime() const override { return m_Script.begin; }
  int64_t GetEndTime() const override { return m_Script.end; }
  size_t GetDataSize() const override { return m_Script.payload.size(); }
  const uint8_t* GetDataPointer() const override {
    return reinterpret_cast<const uint8_t*>(m_Script.payload.data());
  }
  const ImProperty* GetProperty(const std::string& name) const override {
    const auto found = m_Script.properties.find(name);
    return found == m_Script.properties.end() ? nullptr : found->second.get();
  }

private:
  ItemScript m_Script;
};

class ScriptedMedia : public ScriptedItem<ImMediaData> {
public:
  using ScriptedItem::ScriptedItem;
  size_t GetPayloadSize() const override { return GetDataSize(); }
  const uint8_t* GetPayloadPointer() const override { return GetDataPointer(); }
};

class ScriptedSource : public ImPlaybackSourceToolkit, public ImLiveSourceToolkit {
public:
  explicit ScriptedSource(const char* xml) {
    const auto document = NmXerces::CmXmlWrapper::LoadXml(xml ? xml : "");
    const auto script = document->SelectSingleNode("/toolkit/config/script");
    if (!script) {
      return;
    }
    std::string supports;
    script->GetAttributeValue("supports", supports);
    std::stringstream names(supports);
    for (std::string name; std::getline(names, name, ',');) {
      m_Supports.push_back(name);
    }
    std::vector<NmXerces::CmXmlNodePtr> items;
    script->GetChildren(items);
    for (const auto& node : items) {
      ItemScript item;
      node->GetAttributeValue("kind", item.kind);
      node->GetAttributeValue("status", item.status);
      node->GetAttributeValue("begin", item.begin);
      item.end = item.begin;
      node->GetAttributeValue("end", item.end);
      node->GetAttributeValue("sequence", item.sequence);
      node->GetAttributeValue("payload", item.payload);
      // Binary records (encoded pictures) come as hexadecimal text.
      std::string hex;
      node->GetAttributeValue("payload_hex", hex);
      for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        item.payload.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
      }
      std::vector<NmXerces::CmXmlNodePtr> properties;
      node->GetChildren(properties);
      for (const auto& property : properties) {
        std::string name, value;
        property->GetAttributeValue("name", name);
        property->GetAttributeValue("value", value);
        item.properties[name] = std::make_shared<ScriptedText>(value);
      }
      m_Items.push_back(item);
    }
  }
  ~ScriptedSource() override { Log("Delete"); }

  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t argument) override {
    Log("Connect(" + std::to_string(argument) + ")");
    for (const std::string& name : requested) {
      if (std::find(m_Supports.begin(), m_Supports.end(), name) != m_Supports.end()) {
        supported.insert(name);
      }
    }
  }
  void Connect(uint64_t argument) override {
    CmPropertyNameSet supported;
    Connect(CmPropertyNameSet(), supported, argument);
  }
  void Disconnect() override { Log("Disconnect"); }
  void UpdateValues(const CmKeyValueList& values) override {
    std::string entry = "UpdateValues(";
    for (const auto& [key, value] : values) {
      entry += key + "=" + value + ",";
    }
    Log(entry + ")");
  }
  void UpdateValue(const std::string& key, const std::string& value) override {
    Log("UpdateValue(" + key + "=" + value + ")");
  }

  void StartLiveStream() override {
    Log("StartLiveStream");
    m_LivePosition = 0;
  }
  void StopLiveStream() override { Log("StopLiveStream"); }
  uint32_t GetLiveData(ImData** out, uint32_t timeout) override {
    Log("GetLiveData(" + std::to_string(timeout) + ")");
    return m_LivePosition < m_Items.size() ? Deliver(m_Items[m_LivePosition++], out) : StatusNoItem;
  }

  uint32_t MoveFirst() override { return Log("MoveFirst"), MoveToIndex(m_Items.empty() ? -1 : 0); }
  uint32_t MoveLast() override { return Log("MoveLast"), MoveToIndex(Count() - 1); }
  uint32_t MoveNext() override {
    Log("MoveNext");
    return MoveToIndex(m_Position < 0 ? 0 : m_Position + 1);
  }
  uint32_t MovePrevious() override { return Log("MovePrevious"), MoveToIndex(m_Position - 1); }
  uint32_t MoveNextSequence() override {
    Log("MoveNextSequence");
    for (int i = m_Position + 1; m_Position >= 0 && i < Count(); ++i) {
      if (m_Items[i].sequence != m_Items[m_Position].sequence) {
        return MoveToIndex(i);
      }
    }
    return StatusNoItem;
  }
  uint32_t MovePreviousSequence() override {
    Log("MovePreviousSequence");
    const int start = m_Position < 0 ? 0 : SequenceStart(m_Position);
    return start == 0 ? StatusNoItem : MoveToIndex(SequenceStart(start - 1));
  }
  uint32_t MoveTo(int64_t time, SmMoveMode mode) override {
    Log("MoveTo(" + std::to_string(time) + "," + std::to_string(mode) + ")");
    int found = -1;
    for (int i = 0; i < Count(); ++i) {
      const ItemScript& item = m_Items[i];
      switch (mode) {
      case MoveBefore:
        found = item.end < time ? i : found;
        break;
      case MoveAtOrBefore:
        found = item.begin <= time ? i : found;
        break;
      case MoveAfter:
        found = (found < 0 && item.begin > time) ? i : found;
        break;
      case MoveAtOrAfter:
        found = (found < 0 && item.begin >= time) ? i : found;
        break;
      case MoveClosest:
        if (found < 0 || Distance(item, time) < Distance(m_Items[found], time)) {
          found = i;
        }
        break;
      }
    }
    return found < 0 ? StatusNoItem : MoveToIndex(found);
  }
  uint32_t GetData(ImData** out) override {
    Log("GetData");
    return m_Position < 0 ? StatusNoItem : Deliver(m_Items[m_Position], out);
  }

private:
  int Count() const { return static_cast<int>(m_Items.size()); }
  // Unsigned, so that times at opposite ends of the range do not overflow.
  static uint64_t Distance(const ItemScript& item, int64_t time) {
    if (time >= item.begin && time <= item.end) {
      return 0;
    }
    const auto gap = [](int64_t a, int64_t b) {
      return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
                   : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
    };
    return std::min(gap(time, item.begin), gap(time, item.end));
  }
  int SequenceStart(int index) const {
    while (index > 0 && m_Items[index - 1].sequence == m_Items[index].sequence) {
      --index;
    }
    return index;
  }
  uint32_t MoveToIndex(int index) {
    if (index < 0 || index >= Count()) {
      return StatusNoItem;
    }
    m_Position = index;
    return StatusSuccess;
  }
  static uint32_t Deliver(const ItemScript& item, ImData** out) {
    *out = nullptr;
    if (item.kind == "status") {
      return item.status;
    }
    if (item.kind == "media") {
      *out = new ScriptedMedia(item);
    } else if (item.kind == "outofband") {
      *out = new ScriptedItem<ImOutOfBandData>(item);
    }
    return StatusSuccess;
  }

  // Counts this toolkit as alive from before its constructor body to its end,
  // also when the constructor fails half way.
  struct LiveCount {
    LiveCount() { ++liveInstances; }
    ~LiveCount() { --liveInstances; }
    LiveCount(const LiveCount&) = delete;
    LiveCount& operator=(const LiveCount&) = delete;
  } m_LiveCount;
  std::vector<ItemScript> m_Items;
  std::vector<std::string> m_Supports;
  int m_Position = -1;
  size_t m_LivePosition = 0;
};

} // namespace

VZK_PLUGIN_EXPORT ImToolkit* CreateInstance(const char* xml) {
  try {
    Log("CreateInstance");
    return new ScriptedSource(xml);
  } catch (...) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(ImToolkit* toolkit) {
  delete toolkit;
}

// For tests only: what this library was asked to do, and how many of its
// toolkits are alive. Only the test's own thread reads the journal; a
// thread-local copy would give the library dynamic TLS, whose stale entries
// after dlclose upset the leak checker.
VZK_PLUGIN_EXPORT const char* ScriptedSourceJournal() {
  static std::string copy;
  std::lock_guard guard(journalLock);
  copy = journal;
  return copy.c_str();
}

VZK_PLUGIN_EXPORT void ScriptedSourceClearJournal() {
  std::lock_guard guard(journalLock);
  journal.clear();
}

VZK_PLUGIN_EXPORT int ScriptedSourceInstances() {
  return liveInstances;
}
