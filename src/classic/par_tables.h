#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "classic/par_field.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// The fields of each block, in the order in which they lie and are read.
namespace tables {

extern const std::span<const Field> kFrame;        ///< hop to all_bypass
extern const std::span<const Field> kFineBounds;   ///< nbin_param_tbl
extern const std::span<const Field> kCoarseBands;  ///< BandTable of up to 12
extern const std::span<const Field> kBands;        ///< BandTable of up to 60
extern const std::span<const Field> kGroups;       ///< BandTable of up to 5
extern const std::span<const Field> kAin;
extern const std::span<const Field> kFbf;
extern const std::span<const Field> kAna;
extern const std::span<const Field> kAnaPulse;
extern const std::span<const Field> kSyn;
extern const std::span<const Field> kSynPulse;
extern const std::span<const Field> kPwr;
extern const std::span<const Field> kNl;
extern const std::span<const Field> kNl2;
extern const std::span<const Field> kVds;
extern const std::span<const Field> kFineGain;    ///< ns_nr_eq
extern const std::span<const Field> kNsNrHead;    ///< NsNrBlock up to its common part
extern const std::span<const Field> kNsNrBfHead;  ///< NsNrBfBlock up to its common part
extern const std::span<const Field> kNsNrCommon;
extern const std::span<const Field> kNsNrBfTail;  ///< NsNrBfBlock behind its common part
extern const std::span<const Field> kPulseFrame;  ///< hop and bins
extern const std::span<const Field> kPrmBounds;   ///< nbin_pulse_param_tbl
extern const std::span<const Field> kUiBounds;    ///< nbin_pulse_param_ui_tbl
extern const std::span<const Field> kDiffPower;
extern const std::span<const Field> kPulseSup;
extern const std::span<const Field> kDelay;
extern const std::span<const Field> kFillThreshold;  ///< pulse_sup_add_gn_th
extern const std::span<const Field> kNgen;
extern const std::span<const Field> kFilter;
extern const std::span<const Field> kParamID;
extern const std::span<const Field> kVersion;

}  // namespace tables

/// A block at its place in a blob.
struct BlockPlace {
  const char* prefix;  ///< of its keys
  std::span<const Field> fields;
  std::size_t offset;
};

/// All blocks of a blob in the order in which they lie; together they cover every byte once.
std::vector<BlockPlace> layout(const KeyCancelParam&);
std::vector<BlockPlace> layout(const BeamFormingKeyCancelParam&);

}  // namespace sonivo::classic
