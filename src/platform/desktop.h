#pragma once

#include "platform/foreground.h"
#include "platform/input.h"
#include "platform/message_queue.h"
#include "platform/painting.h"
#include "platform/window_messages.h"
#include "platform/windows.h"

namespace sonivo {

/// The desktop of the session: message queues, and what they bring messages from. Its parts live as long as it does.
class Desktop : public MessageQueue {
 public:
  virtual Windows& windows() = 0;
  virtual Foreground& foreground() = 0;
  virtual Painting& painting() = 0;
  virtual InputDevices& input() = 0;
};

}  // namespace sonivo
