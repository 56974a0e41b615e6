#include "classic/key_cancel.h"

#include "classic/result.h"

namespace sonivo {

int CKeyCancel::GetVersion(std::uint16_t* major, std::uint16_t* minor) const {
  if (major == nullptr || minor == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *major = 0;
  *minor = 4;
  return 0;
}

int CKeyCancel::GetParamSize(std::uint32_t* size) const {
  if (size == nullptr) return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
  *size = 15808;
  return 0;
}

int CKeyCancel::Open(const void*, float, std::uint16_t, std::uint16_t) {
  return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG;
}
int CKeyCancel::Close() { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::Execute(float*) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetParam(const void*) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetParamID(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetKeyReductionActive(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetKeyReductionActive(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetNoiseReductionActive(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetNoiseReductionActive(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetSamplingRate(float) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetSamplingRate(float*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetChannel(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetChannel(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::SetDataLength(std::uint16_t) { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }
int CKeyCancel::GetDataLength(std::uint16_t*) const { return ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG; }

}  // namespace sonivo
