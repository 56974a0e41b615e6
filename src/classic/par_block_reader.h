#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "classic/par_source.h"
#include "classic/par_tables.h"
#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Reads blocks along their field tables. Every operation answers how many keys failed.
class BlockReader {
 public:
  /// hop: samples per frame, for what is given in time. source outlives this object.
  BlockReader(ParSource& source, int hop) : source_(source), hop_(hop) {}

  BandCounts& counts() { return counts_; }

  /// Fills the fields that have a key; block is where the first of them lies.
  int read(const char* prefix, std::span<const Field> fields, void* block);

  /// The same for a block that states its count of bands.
  template <typename Block>
  int read_banded(const char* prefix, std::span<const Field> fields, Block& block, int bands) {
    block.nbin = static_cast<decltype(block.nbin)>(bands);
    return read(prefix, fields, &block);
  }

  /// A band table with its widths; count becomes its number of bands.
  int read_bands(const char* prefix, std::span<const Field> fields, BandTable& table, int& count);

  /// "ain.": the stages and their designs.
  int read_input_filter(AinBlock& block);

 private:
  struct Progress {
    int errors = 0;
    bool ended = false;  // by a limit
    int own = 0;         // the count that stands in this block
  };

  void read_field(const char* prefix, const Field& field, std::byte* place, Progress& progress);
  template <typename T>
  void read_elements(const char* prefix, const Field& field, std::byte* place, Progress& progress);
  template <typename T>
  void read_limited(const char* prefix, const Field& field, std::span<T> values, Progress& progress);
  Progress read_block(const char* prefix, std::span<const Field> fields, void* block);

  ParSource& source_;
  int hop_;
  BandCounts counts_;
};

/// Slopes of a curve through (0, 0), (thi1, tho1), (thi2, tho2) and (1, 1).
void make_slopes(float thi1, float thi2, float tho1, float tho2, float (&slope)[3]);

}  // namespace sonivo::classic
