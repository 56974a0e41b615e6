#include "platform/linux/pipewire/card_route.h"

#include <gtest/gtest.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/iter.h>

#include <array>

namespace sonivo::pipewire {
namespace {

struct Pod {
  Pod() { spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size())); }
  std::array<std::uint8_t, 1024> memory{};
  spa_pod_builder builder{};
};

const spa_pod& value_of(const spa_pod& object, std::uint32_t key) {
  return spa_pod_find_prop(&object, nullptr, key)->value;
}

TEST(CardRoute, ARouteInUseTellsItsIndexDirectionAndDevice) {
  Pod pod;
  spa_pod_frame frame;
  spa_pod_builder_push_object(&pod.builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_prop(&pod.builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&pod.builder, 3);
  spa_pod_builder_prop(&pod.builder, SPA_PARAM_ROUTE_direction, 0);
  spa_pod_builder_id(&pod.builder, SPA_DIRECTION_OUTPUT);
  spa_pod_builder_prop(&pod.builder, SPA_PARAM_ROUTE_device, 0);
  spa_pod_builder_int(&pod.builder, 5);
  const auto* object = static_cast<const spa_pod*>(spa_pod_builder_pop(&pod.builder, &frame));
  const auto route = read_route(*object);
  ASSERT_TRUE(route.has_value());
  EXPECT_EQ(route->index, 3);
  EXPECT_EQ(route->direction, std::uint32_t{SPA_DIRECTION_OUTPUT});
  EXPECT_EQ(route->device, 5);
}

TEST(CardRoute, ARouteThatServesNoDeviceIsNotInUse) {
  Pod pod;
  spa_pod_frame frame;
  spa_pod_builder_push_object(&pod.builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_EnumRoute);
  spa_pod_builder_prop(&pod.builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&pod.builder, 3);
  EXPECT_FALSE(read_route(*static_cast<const spa_pod*>(spa_pod_builder_pop(&pod.builder, &frame))).has_value());
}

TEST(CardRoute, AChangeNamesTheRouteAndOnlyWhatDiffers) {
  Pod pod;
  const NodeVolume before{.muted = false, .channels = {0.5f, 0.5f}};
  const NodeVolume wanted{.muted = true, .channels = {0.5f, 0.5f}};
  const spa_pod& param = *route_volume(pod.builder, {.index = 3, .direction = 0, .device = 5}, before, wanted);
  std::int32_t number = 0;
  EXPECT_EQ(spa_pod_get_int(&value_of(param, SPA_PARAM_ROUTE_index), &number), 0);
  EXPECT_EQ(number, 3);
  EXPECT_EQ(spa_pod_get_int(&value_of(param, SPA_PARAM_ROUTE_device), &number), 0);
  EXPECT_EQ(number, 5);
  const spa_pod& props = value_of(param, SPA_PARAM_ROUTE_props);
  NodeVolume told{.muted = false, .channels = {0.25f}};
  EXPECT_TRUE(read_volume(props, told));
  EXPECT_TRUE(told.muted);
  EXPECT_EQ(told.channels, (std::vector<float>{0.25f}));
}

TEST(CardRoute, AMuteIsKeptBySessionManagersAndALevelIsNot) {
  const NodeVolume before{.muted = false, .channels = {0.5f, 0.5f}};
  const auto is_kept = [&](const NodeVolume& wanted) {
    Pod pod;
    const spa_pod& param = *route_volume(pod.builder, {.index = 3, .direction = 0, .device = 5}, before, wanted);
    bool kept = false;
    EXPECT_EQ(spa_pod_get_bool(&value_of(param, SPA_PARAM_ROUTE_save), &kept), 0);
    return kept;
  };
  EXPECT_TRUE(is_kept({.muted = true, .channels = {0.5f, 0.5f}}));
  EXPECT_FALSE(is_kept({.muted = false, .channels = {0.9f, 0.9f}}));
  EXPECT_FALSE(is_kept({.muted = true, .channels = {0.9f, 0.9f}}));
}

}  // namespace
}  // namespace sonivo::pipewire
