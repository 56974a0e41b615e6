#pragma once

#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "classic/par_reader.h"
#include "classic/param_check.h"

namespace sonivo::classic {

/// A processing channel from a par file, KeyCancelChannel or BeamFormingChannel; null, with the message "parametre
/// error", when a key failed or no channel can run on the values, or "memory empty".
template <class Channel>
std::unique_ptr<Channel> MakeChannel(const std::string& path, std::ostream& messages = std::cout) try {
  std::shared_ptr<const typename Channel::Param> param = MakeParams<typename Channel::Param>(path, messages);
  if (!param) return nullptr;
  if (!usable(*param)) {
    messages << "parametre error\n";
    return nullptr;
  }
  return std::make_unique<Channel>(std::move(param));
} catch (const std::bad_alloc&) {
  messages << "memory empty\n";
  return nullptr;
}

}  // namespace sonivo::classic
