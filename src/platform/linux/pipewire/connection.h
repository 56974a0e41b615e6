#pragma once

#include <pipewire/pipewire.h>

#include <memory>
#include <string>
#include <vector>

namespace sonivo::pipewire {

/// The connection to the audio server, made anew whenever the server is there again. All of it happens on the thread of
/// its loop; other threads hold a Lock while they touch anything of the server's.
///
/// It is two clients to the server, which hears nothing more of one that has asked for another's object until that
/// other has answered. The one bears our nodes and asks nobody for anything, the other asks: were they one, we and the
/// session manager would wait for each other for ever whenever each asks at the same time, and with us all clients.
class Connection {
 public:
  /// What lives by the connection. Called on the loop's thread, with the loop locked.
  class User {
   public:
    virtual void connected(pw_core& core) = 0;
    /// Whatever belongs to the core has to go now.
    virtual void disconnected() = 0;

   protected:
    ~User() = default;
  };

  /// Keeps the loop from turning, for as long as it lives. May be nested.
  class Lock {
   public:
    explicit Lock(const Connection& connection) : loop_(connection.loop_) { pw_thread_loop_lock(loop_); }
    ~Lock() { pw_thread_loop_unlock(loop_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pw_thread_loop* loop_;
  };

  /// To the server of this name or path; empty: the session's own. Throws std::runtime_error when the client library
  /// can't be set up.
  explicit Connection(const std::string& remote = {});
  /// No user is left.
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// With a Lock. A user is told at once that there is a connection if there is one.
  void add(User& user);
  /// With a Lock. The user is not told anything.
  void remove(User& user);
  /// With a Lock. Bears our nodes; null while there is no server.
  pw_core* core() const { return bearer_.core; }
  /// With a Lock. Asks for the objects of others; null while there is no server.
  pw_core* asker() const { return asker_.core; }
  /// With a Lock. One more client to the same server, on the same loop, which the caller ends; null when there is
  /// none to be had.
  pw_core* connect_beside();
  pw_loop& loop() const { return *pw_thread_loop_get_loop(loop_); }

 private:
  struct Client {
    pw_core* core = nullptr;
    spa_hook hook{};
  };

  void connect();
  pw_core* connect_once();
  bool open(Client& client);
  static void close(Client& client);
  void lose();
  void note_away(const char* how);
  void retry_later();

  pw_thread_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  spa_source* retry_ = nullptr;
  spa_source* lost_ = nullptr;
  std::string remote_;
  Client bearer_;
  Client asker_;
  unsigned failures_ = 0;  ///< since the latest connection
  bool is_away_ = false;   ///< and the log says so
  std::vector<User*> users_;
};

}  // namespace sonivo::pipewire
