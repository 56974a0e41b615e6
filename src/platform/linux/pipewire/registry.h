#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <string_view>

#include "platform/linux/pipewire/connection.h"

namespace sonivo::pipewire {

/// The list of the server's objects, anew with each connection. The last member of its user, so that it is the first to
/// go.
class Registry final : private Connection::User {
 public:
  /// Called on the loop's thread, with the loop locked.
  class User {
   public:
    virtual void came(std::uint32_t id, std::string_view type, const spa_dict& properties) = 0;
    virtual void went(std::uint32_t id) = 0;
    /// Once for each connection: all rounds are over.
    virtual void told() {}
    /// The server has gone, or the list: no object may stay bound.
    virtual void lost() = 0;

   protected:
    ~User() = default;
  };

  /// `rounds` of a question and its answer, one after the other, in which the server tells all that the user asks for:
  /// in the first its objects, in each further one what was asked of those in the one before.
  Registry(Connection& connection, User& user, int rounds = 0);
  ~Registry();
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // With the loop locked.
  bool is_told() const { return core_ != nullptr && rounds_left_ == 0; }
  /// Null while there is no server.
  pw_core* core() const { return core_; }
  /// While there is a server.
  pw_registry& objects() const { return *objects_; }

 private:
  // Connection::User
  void connected(pw_core& core) override;
  void disconnected() override;

  void ask();
  void answered(int number);

  Connection& connection_;
  Registry::User& user_;
  const int rounds_;
  pw_core* core_ = nullptr;
  spa_hook core_hook_{};
  pw_registry* objects_ = nullptr;
  spa_hook objects_hook_{};
  int rounds_left_ = 0;
  int question_ = 0;  ///< number of its answer; others ask over the same connection
};

/// For the number of params that an object is asked for.
inline constexpr std::uint32_t kAllParams = 0xFFFFFFFF;

/// One of the server's objects and what listens to it. With the loop locked, all of it.
class BoundObject {
 public:
  /// `events`: a table of the object's own kind of events, which are told to `data`.
  BoundObject(const Registry& registry, std::uint32_t id, const char* type, std::uint32_t version, const void* events,
              void* data)
      : proxy_(static_cast<pw_proxy*>(pw_registry_bind(&registry.objects(), id, type, version, 0))) {
    if (proxy_ != nullptr) pw_proxy_add_object_listener(proxy_, &hook_, events, data);
  }
  ~BoundObject() {
    if (proxy_ == nullptr) return;
    spa_hook_remove(&hook_);
    pw_proxy_destroy(proxy_);
  }
  BoundObject(const BoundObject&) = delete;
  BoundObject& operator=(const BoundObject&) = delete;

  /// Null: there is no such object.
  template <class T = pw_proxy>
  T* get() const {
    return reinterpret_cast<T*>(proxy_);
  }

 private:
  pw_proxy* const proxy_;
  spa_hook hook_{};
};

}  // namespace sonivo::pipewire
