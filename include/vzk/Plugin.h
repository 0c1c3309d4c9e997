#pragma once

// The two entries that every toolkit plug-in library exports with C linkage.

#include "vzk/Toolkit.h"

#define VZK_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
// Builds a toolkit from a zero-terminated XML text; the caller deletes it with
// the same library's DeleteInstance.
typedef NmToolkit::ImToolkit* (*VzkCreateInstanceFunction)(const char* xml);
typedef void (*VzkDeleteInstanceFunction)(NmToolkit::ImToolkit* toolkit);
}
