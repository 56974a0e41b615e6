#pragma once

#include "base/clock.h"
#include "base/event.h"
#include "base/thread.h"
#include "platform/desktop.h"
#include "platform/device.h"
#include "platform/endpoints.h"
#include "platform/folders.h"
#include "platform/fx_properties.h"
#include "platform/power.h"
#include "platform/processes.h"
#include "platform/session.h"

namespace sonivo {

/// The machine that a program runs on: chosen once by its entry, handed downward, outliving all who hold it.
struct Machine {
  Clock& clock;
  Events& events;
  Threads& threads;
  DeviceBus& bus;
  Endpoints& endpoints;
  FxProperties& fx_properties;
  Session& session;
  Power& power;
  Desktop& desktop;
  Processes& processes;
  Folders& folders;
};

}  // namespace sonivo
