#include "classic/beam_forming_key_cancel.h"

#include "classic/result.h"

namespace sonivo {

int CBeamFormingKeyCancel::GetVersion(std::uint16_t* major, std::uint16_t* minor) const {
  if (major == nullptr || minor == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *major = 1;
  *minor = 0;
  return 0;
}

int CBeamFormingKeyCancel::GetParamSize(std::uint32_t* size) const {
  if (size == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *size = 32636;
  return 0;
}

int CBeamFormingKeyCancel::Open(const void*, float, std::uint16_t, std::uint16_t) {
  return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
}
int CBeamFormingKeyCancel::Close() { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::Execute(float*) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::SetParam(const void*) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetParamID(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::SetKeyReductionActive(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetKeyReductionActive(std::uint16_t*) const {
  return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
}
int CBeamFormingKeyCancel::SetNoiseReductionActive(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetNoiseReductionActive(std::uint16_t*) const {
  return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
}
int CBeamFormingKeyCancel::SetBeamFormingActive(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetBeamFormingActive(std::uint16_t*) const {
  return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
}
int CBeamFormingKeyCancel::SetSamplingRate(float) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetSamplingRate(float*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::SetChannel(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetChannel(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::SetDataLength(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CBeamFormingKeyCancel::GetDataLength(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }

}  // namespace sonivo
