#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "meridane/matrix.h"

// What travels between the nodes of a flow.

namespace meridane {

/// A frame; frames, one per column; a word in UTF-8.
using FlowData = std::variant<Vector, Matrix, std::string>;

// Reserved: the ports of nodes; in links, in place of a node, the flow itself.
inline constexpr const char* kInputPort = "_input";
inline constexpr const char* kOutputPort = "_output";

enum class PortType { vector, word };
const char* port_type_name(PortType type);
PortType port_type(const FlowData& data);
/// Throws TypeMismatchError, "Flow types are mismatched (expected=TO;expected=FROM)", unless they are equal.
void expect_same_type(PortType to, PortType from);

/// A session of frames is opened by a start pack and closed by an end pack.
struct PackInfo {
  enum class Kind { start, end };
  Kind kind;
  std::uint64_t frames = 0;  ///< data vectors, or words, since the start
};

/// How many values may wait in a flow at once.
class FlowBudget {
 public:
  static constexpr std::size_t kMostWaiting = std::size_t{1} << 24;

  /// Throws "More than COUNT values wait in the flow".
  void take(std::size_t values);
  void give(std::size_t values) { waiting_ -= values; }

 private:
  std::size_t waiting_ = 0;
};

/// What one that holds values has taken of the budget; given back with it.
class FlowShare {
 public:
  /// Without a budget there is no limit.
  explicit FlowShare(std::shared_ptr<FlowBudget> budget) : budget_(std::move(budget)) {}
  ~FlowShare() { give_all(); }
  FlowShare(FlowShare&&) noexcept = default;
  FlowShare& operator=(FlowShare&&) = delete;

  void take(std::size_t values);
  void give(std::size_t values);
  void give_all() { give(taken_); }

 private:
  std::shared_ptr<FlowBudget> budget_;
  std::size_t taken_ = 0;
};

/// Vectors that wait, first in, first out.
class FrameQueue {
 public:
  explicit FrameQueue(std::shared_ptr<FlowBudget> budget) : share_(std::move(budget)) {}

  void push(const Vector& frame);
  Vector pop();  ///< the oldest; there must be one
  void clear();

  std::size_t size() const { return frames_.size(); }
  const Vector& operator[](std::size_t index) const { return frames_[index]; }  ///< 0 is the oldest

 private:
  FlowShare share_;
  std::deque<Vector> frames_;
};

/// Collects what a port sends and hands it on, in order, to those that listen.
class OutputBuffer {
 public:
  using PackHandler = std::function<void(const PackInfo&)>;
  using DataHandler = std::function<void(const FlowData&)>;

  /// Without a budget what waits here isn't limited.
  OutputBuffer(std::string name, PortType type, std::shared_ptr<FlowBudget> budget)
      : name_(std::move(name)), type_(type), share_(std::move(budget)) {}
  OutputBuffer(const OutputBuffer&) = delete;
  OutputBuffer& operator=(const OutputBuffer&) = delete;

  const std::string& name() const { return name_; }
  PortType type() const { return type_; }
  void set_type(PortType type) { type_ = type; }
  void add_handlers(PackHandler on_pack, DataHandler on_data);
  bool has_handlers() const { return !handlers_.empty(); }

  /// Opens a session. "is in session already" while one is open.
  void start();
  /// "is not in session" outside of a session.
  void put(FlowData&& data);
  void end();
  bool in_session() const { return in_session_; }

  /// Calls the handlers with all that was collected, and forgets it.
  void deliver();
  /// The vectors collected so far, one per column, and forgets what was collected; so it does when it throws "number of
  /// dimentions of input data does not accord", for vectors of several sizes.
  Matrix take();
  /// Forgets what was collected and that a session is open.
  void clear();

 private:
  using Record = std::variant<PackInfo, FlowData>;
  struct Handlers {
    PackHandler on_pack;
    DataHandler on_data;
  };

  void collect(Record record);
  void forget();

  std::string name_;
  PortType type_;
  FlowShare share_;
  std::vector<Handlers> handlers_;
  std::vector<Record> records_;
  bool in_session_ = false;
  std::uint64_t frames_ = 0;  // since the start of the session
};

}  // namespace meridane
