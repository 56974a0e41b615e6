#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "platform/properties.h"
#include "relay/chain_status.h"
#include "relay/chains.h"
#include "relay/echo_filter.h"
#include "relay/model_table.h"
#include "relay/stream_interface.h"
#include "relay/volume_control.h"
#include "relay/wanted_state.h"

namespace sonivo {

constexpr std::uint32_t kBlockMs = 10;  ///< of what goes through the chains at a time

/// The microphone direction: physical microphone, PRE buffer, 10 ms blocks through at most one chain, stream ring,
/// virtual microphone. Owns the chains and the settings that the host changes while audio runs.
class CCaptureInterface final : public CStreamInterface, public IVolumeControl {
 public:
  CCaptureInterface(const Machine& machine, const ChainFactory& make_chains);
  ~CCaptureInterface() override;

  // IVolumeControl
  Status SetMuteAction(bool mute) override;
  Status GetMute(std::uint32_t* muted) override;
  Status CheckDeviceName(std::string_view text) override;

  /// Any thread, any time: which notebook this is. The microphone's values choose the chain, which is opened with the
  /// next stream; until then the blocks pass unprocessed.
  void SetGenAndFunction(std::uint32_t generation, std::uint32_t function, std::uint32_t generation_mic,
                         std::uint32_t function_mic);

  // Settings, taken up at the head of the next block.
  void UpdateKeyCancelState(bool on) { m_KeyCancelState.Update(on); }
  void UpdateBeamFormingKeyCancelState(bool on) { m_BeamFormingkeyCancelState.Update(on); }
  void UpdateBeamFormingState(bool on) { m_BeamFormingState.Update(on); }
  void UpdateAISpeechEnhanceBeamFormingKeyCancelState(bool on) { m_AISpeechEnhanceKeyCancelState.Update(on); }
  void UpdateAISpeechEnhanceBeamFormingState(bool on) { m_AISpeechEnhanceBeamFormingState.Update(on); }
  void UpdateAISpeechEnhanceState(bool on) { m_AISpeechEnhanceState.Update(on); }
  /// Goes over to the enrolled model or back; 1, or 0 when the enrolled file is missing.
  int UpdateAISpeechEnhanceSetAiModelState(bool use_enrolled);

  // The same states as start-up seeds them.
  void ChangeKeyCancelState(bool on) { m_KeyCancelState.Change(on); }
  void ChangeBeamFormingKeyCancelState(bool on) { m_BeamFormingkeyCancelState.Change(on); }
  void ChangeBeamFormingState(bool on) { m_BeamFormingState.Change(on); }
  void ChangeAISpeechEnhanceBeamFormingKeyCancelState(bool on) { m_AISpeechEnhanceKeyCancelState.Change(on); }
  void ChangeAISpeechEnhanceBeamFormingState(bool on) { m_AISpeechEnhanceBeamFormingState.Change(on); }
  void ChangeAISpeechEnhanceState(bool on) { m_AISpeechEnhanceState.Change(on); }
  void ChangeAISpeechEnhanceSetAiModelState(bool on) { m_bSetAiModelState = on; }

  /// Row of the model table; values other than 1 to 3 change nothing.
  void SetAISpeechEnhanceModelNo(std::int32_t no);
  /// Path of the enrolled model file, at most 259 bytes.
  void SetAISpeechEnhancePmodel(const char* path);
  /// Recording to enrol from, at most 259 bytes.
  void SetAISpeechEnhanceWavFile(const char* path);

  /// Opens the third chain with the row's model: at start-up, before a stream needs it. When that fails it is tried
  /// again at the end of each stream, or attempt at one, until SetAISpeechEnhanceClose.
  Status SetAISpeechEnhanceOpen();
  Status SetAISpeechEnhanceClose();

  /// Enrols a voice: from the recording to the enrolled model file, which is then used. Blocks for as long as it takes.
  int MakeAISpeechEnhanceModel(bool);
  int QuitAISpeechEnhanceModel();

  /// Any thread: the chain that the blocks of the running stream go through.
  ChainKind RunningChain() const;
  /// Any thread: none where no chain is called for.
  ChainFault LatestChainFault() const;

 private:
  float PhysicalLevel() const override;
  Status PhysicalEndpointOpen() override;
  void PhysicalEndpointClose() override;
  std::int32_t Step() override;

  // Capture step, by what woke it.
  std::int32_t VirtualTransferDone();
  std::int32_t PhysicalDataReady();
  void RestartPhysicalClient();

  // 10 ms blocks from the PRE buffer through the chain into the stream ring.
  std::int32_t ProcessBlocks();
  void RunKeyCancel();
  Status RunBeamForming();
  Status RunAISpeech();
  struct ChainTexts;
  void RunChain(Chain& chain, const ChainTexts& texts, float target, float& sel);
  int Execute(Chain& chain);
  bool IsClosing(const Chain& chain) const;
  Status SetReduction(Chain& chain, bool on);
  void NoteLatency(Chain& chain);

  // Opening and closing of the chains with a physical stream.
  Status OpenKeyCancel();
  Status OpenBeamForming();
  Status StartAISpeech();
  void ReopenAISpeech();
  /// Opens with the parameters now stored; once these could be read, `model` is the model in use.
  Status OpenAISpeech(const std::string& model);
  /// Reads the parameters behind `key`, which start after `flag_bytes`. A failed status where the chain can't tell
  /// their size; `readable` is false where the store has none.
  Status ReadParameters(Chain& chain, const PropertyKey& key, std::size_t flag_bytes, bool& readable);
  Status SetBlockShape(Chain& chain);
  /// Answers a failed status.
  Status NoteChainFault(ChainFault fault);

  ModelRow CurrentModelRow();
  float ReadStrength();
  /// Swaps to the model now in use, if its file is there, and sets the strength anew. Under m_csAIOpen. Answers the
  /// first failure.
  int SwapAIModel();
  std::string EnrolledModelPath() const;

  bool GateKC() const;
  bool GateBF() const;
  bool GateAI() const;

  std::unique_ptr<AudioCaptureClient> m_pCaptureClient;
  EchoFilter m_EchoFilter;
  bool m_bRingReady = false;  // until the ring holds 30 ms the virtual microphone gets silence

  Chains m_chains;
  std::vector<std::byte> m_paramFlags;
  std::vector<std::uint16_t> m_params;  // of the open chain, which goes on using them

  std::atomic<ChainFault> m_chainFault{ChainFault::none};

  std::atomic<bool> m_bKeyCancelOpen{false};
  WantedState m_KeyCancelState{true};
  float m_fKCSelTarget = 1.0f;
  float m_fKCSel = 1.0f;

  std::atomic<bool> m_bBeamFormingKeyCancelOpen{false};
  WantedState m_BeamFormingkeyCancelState{true};
  float m_fBeamFormingKCSel2 = 1.0f;
  WantedState m_BeamFormingState{false};

  std::atomic<bool> m_AISpeechEnhanceIsOpen{false};
  std::atomic<bool> m_bAISpeechEnhanceRunning{false};
  std::atomic<bool> m_bAISpeechEnhanceReady{false};
  std::atomic<bool> m_bAISpeechEnhanceWanted{false};  // from the host's open to its close
  WantedState m_AISpeechEnhanceKeyCancelState{false};
  WantedState m_AISpeechEnhanceBeamFormingState{false};
  WantedState m_AISpeechEnhanceState{false};
  float m_AISpeechEnhanceBeamFormingKCSel = 1.0f;
  std::mutex m_csAIOpen;  // open, close, model change and every Execute of the third chain
  std::atomic<bool> m_bSetAiModelState{false};
  std::string m_AISpeechEnhanceSetAiModelName;

  std::mutex m_csModelNo;
  std::int32_t m_AISpeechEnhanceModelNo = kLastModelNo;
  std::mutex m_csWavFile;
  std::array<char, 260> m_szWavFile{};
  mutable std::mutex m_csPmodel;
  std::array<char, 260> m_szPmodel{};

  std::atomic<std::uint32_t> m_Function{0};
  std::atomic<std::uint32_t> m_dwGeneration{0};
  std::atomic<std::uint32_t> m_FunctionMic{0};
  std::atomic<std::uint32_t> m_dwGenerationMic{0};

  RingBuffer m_PreBuffer;
  std::vector<std::byte> m_silence;  // stands in for packets that are flagged silent
  std::vector<std::byte> m_block;
  std::vector<float> m_wet;
  std::vector<float> m_dry;
};

}  // namespace sonivo
