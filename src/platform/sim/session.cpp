#include "platform/sim/session.h"

namespace sonivo::sim {

bool SimSession::process_session(std::uint32_t& session) {
  if (script_.enter(Step::process_session)) return false;
  session = process_;
  return true;
}

}  // namespace sonivo::sim
