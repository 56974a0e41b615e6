#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "../support/whole_names.h"
#include "meridane/error.h"
#include "meridane/frontend/flow.h"

namespace meridane {

inline Flow flow_of(const std::string& text) {
  std::istringstream document(text);
  return Flow(document);
}

inline std::string document_of(const Flow& flow) {
  std::ostringstream document;
  flow.dump(document);
  return document.str();
}

inline std::string link_text(const std::string& from, const std::string& to, const std::string& to_port = "_input") {
  const std::string from_port = from == "_input" ? "_input" : "_output";
  return "<link from_node=\"" + from + "\" from_port=\"" + from_port + "\" to_node=\"" + to + "\" to_port=\"" +
         to_port + "\"/>\n";
}

/// A flow of one node, "n", between the input and the output.
inline std::string one_node(const std::string& type, const std::string& settings) {
  return "<flow><node type=\"" + type + "\" id=\"n\">" + settings + "</node>" + link_text("_input", "n") +
         link_text("n", "_output", "_output") + "</flow>";
}

/// All that comes out for a session of those frames, in columns.
inline Matrix run(Flow& flow, const Matrix& frames) {
  flow.start();
  flow.feed(frames);
  flow.end();
  return flow.take();
}

inline Matrix run_node(const std::string& type, const std::string& settings, const Matrix& frames) {
  Flow flow = flow_of(one_node(type, settings));
  return run(flow, frames);
}

/// What action throws: its text, and that it was raised in that operation.
template <class Error = BaseRuntimeError, class Action>
void expect_error(const Action& action, const std::string& message, const std::string& operation) {
  try {
    action();
    ADD_FAILURE() << "nothing was thrown, expected: " << message;
  } catch (const Error& error) {
    EXPECT_EQ(error.what(), message);
    if (kTellsWholeNames) {
      EXPECT_EQ(error.function(), operation);
    }
  }
}

template <class Error = BaseRuntimeError>
void expect_load_error(const std::string& document, const std::string& message, const std::string& operation) {
  expect_error<Error>([&] { flow_of(document); }, message, operation);
}

/// One behind the other; those without columns don't count.
inline Matrix joined(const std::vector<Matrix>& parts) {
  Matrix all;
  for (const Matrix& part : parts) {
    if (part.cols() == 0) continue;
    const Eigen::Index before = all.cols();
    all.conservativeResize(part.rows(), before + part.cols());
    all.rightCols(part.cols()) = part;
  }
  return all;
}

/// Numbers of their own in every place.
inline Matrix numbered(Eigen::Index rows, Eigen::Index cols) {
  Matrix frames(rows, cols);
  for (Eigen::Index t = 0; t < cols; ++t) {
    for (Eigen::Index i = 0; i < rows; ++i) frames(i, t) = static_cast<float>(100 * (t + 1) + i + 1);
  }
  return frames;
}

}  // namespace meridane
