#pragma once

// Everything a host or a plug-in needs.
#include "vzk/Data.h"
#include "vzk/Plugin.h"
#include "vzk/Toolkit.h"
#include "vzk/ToolkitError.h"
