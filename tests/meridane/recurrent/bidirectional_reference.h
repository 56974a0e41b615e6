#pragma once

#include "lstm_reference.h"

// The records of the layers of two directions, and how their outputs are joined.

namespace meridane::test {

struct BothDirections {
  explicit BothDirections(unsigned seed, Eigen::Index cells = 4, Eigen::Index rows = 3)
      : dice(seed), forward(dice, cells, rows), backward(dice, cells, rows) {}

  Dice dice;
  Direction forward, backward;
};

inline Exact joined(const Exact& forward, const Exact& backward, bool sum) {
  if (sum) return forward + backward;
  Exact y(forward.rows() + backward.rows(), forward.cols());
  y << forward, backward;
  return y;
}

inline std::string bidirectional_record(const std::string& family, Form form, const BothDirections& p,
                                        const std::vector<std::int32_t>& integers) {
  Record record(prefix_of(form) + family);
  add_direction(record, p.forward, form);
  add_direction(record, p.backward, form);
  for (const std::int32_t integer : integers) record.number(integer);
  return record.bytes();
}

}  // namespace meridane::test
