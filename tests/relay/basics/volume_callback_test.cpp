#include "relay/volume_callback.h"

#include <gtest/gtest.h>

namespace sonivo::test {
namespace {

/// Keeps the latest notification that reached it.
struct Owner final : IMultiAudioEndpointVolumeCallback {
  void OnNotify(CAudioEndpointVolumeCallback* callback, const AUDIO_VOLUME_NOTIFICATION_DATA* data) override {
    ++calls;
    from = callback;
    told = data;
  }
  int calls = 0;
  CAudioEndpointVolumeCallback* from = nullptr;
  const AUDIO_VOLUME_NOTIFICATION_DATA* told = nullptr;
};

constexpr Guid kUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr Guid kCallback{0x657804FA, 0xD6AD, 0x4496, {0x8A, 0x60, 0x35, 0x27, 0x52, 0xAF, 0x4F, 0x89}};

TEST(VolumeCallback, AnswersItsTwoInterfacesWithAReferenceAdded) {
  Owner owner;
  CAudioEndpointVolumeCallback callback(true, &owner);
  for (const Guid& iid : {kUnknown, kCallback}) {
    void* object = nullptr;
    EXPECT_EQ(callback.QueryInterface(iid, &object), kOk);
    EXPECT_EQ(object, static_cast<IAudioEndpointVolumeCallback*>(&callback));
    EXPECT_EQ(callback.Release(), 1u);
  }
}

TEST(VolumeCallback, AnswersNoOtherInterface) {
  Owner owner;
  CAudioEndpointVolumeCallback callback(true, &owner);
  Guid other = kCallback;
  other.data4[7] ^= 1;
  void* object = &owner;
  EXPECT_EQ(static_cast<std::uint32_t>(callback.QueryInterface(other, &object)), 0x80004002u);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(callback.Release(), 0u);  // nothing was added to the first reference
}

TEST(VolumeCallback, CountsFromOne) {
  CAudioEndpointVolumeCallback callback(false, nullptr);
  EXPECT_EQ(callback.AddRef(), 2u);
  EXPECT_EQ(callback.AddRef(), 3u);
  EXPECT_EQ(callback.Release(), 2u);
  EXPECT_EQ(callback.Release(), 1u);
  EXPECT_EQ(callback.Release(), 0u);
}

TEST(VolumeCallback, TellsItsOwnerWhichCallbackWasNotified) {
  Owner owner;
  CAudioEndpointVolumeCallback physical(false, &owner);
  CAudioEndpointVolumeCallback virtual_one(true, &owner);
  EXPECT_FALSE(physical.IsVirtual());
  EXPECT_TRUE(virtual_one.IsVirtual());
  const AUDIO_VOLUME_NOTIFICATION_DATA data;
  EXPECT_EQ(virtual_one.OnNotify(&data), kOk);
  EXPECT_EQ(owner.from, &virtual_one);
  EXPECT_EQ(owner.told, &data);
  EXPECT_EQ(physical.OnNotify(&data), kOk);
  EXPECT_EQ(owner.from, &physical);
  EXPECT_EQ(owner.calls, 2);
}

TEST(VolumeCallback, RefusesANotificationWithoutData) {
  Owner owner;
  CAudioEndpointVolumeCallback callback(true, &owner);
  EXPECT_EQ(static_cast<std::uint32_t>(callback.OnNotify(nullptr)), 0x80070057u);
  EXPECT_EQ(owner.calls, 0);
}

TEST(VolumeCallback, FailsWithoutAnOwner) {
  CAudioEndpointVolumeCallback callback(true, nullptr);
  const AUDIO_VOLUME_NOTIFICATION_DATA data;
  EXPECT_EQ(static_cast<std::uint32_t>(callback.OnNotify(&data)), 0x80004005u);
}

TEST(VolumeCallback, MissingDataIsToldBeforeAMissingOwner) {
  CAudioEndpointVolumeCallback callback(true, nullptr);
  EXPECT_EQ(callback.OnNotify(nullptr), kInvalidArgument);
}

TEST(VolumeCallback, OwnWritesBearTheProgramsContext) {
  EXPECT_EQ(to_text(kOwnVolumeContext), "{80dcad75-d3fd-407f-8483-3a0383f6357d}");
}

}  // namespace
}  // namespace sonivo::test
