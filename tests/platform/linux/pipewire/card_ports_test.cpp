#include "platform/linux/pipewire/card_ports.h"

#include <gtest/gtest.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace sonivo::pipewire {
namespace {

using Availability = CardPort::Availability;
using Info = std::vector<std::pair<const char*, const char*>>;

/// A route as the sound cards of this server tell of it.
struct RouteOfACard {
  std::int32_t index = 3;
  std::uint32_t direction = SPA_DIRECTION_OUTPUT;
  std::optional<std::uint32_t> available = SPA_PARAM_AVAILABILITY_yes;
  Info info = {{"port.type", "headphones"}, {"port.availability-group", "Headphone"}, {"card.profile.port", "3"}};
  int items_too_many = 0;
  std::optional<std::int32_t> device = {};

  std::optional<CardPort> read() const {
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    spa_pod_frame object;
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_EnumRoute);
    spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_index, SPA_POD_Int(index), SPA_PARAM_ROUTE_direction,
                        SPA_POD_Id(direction), SPA_PARAM_ROUTE_name, SPA_POD_String("analog-output-headphones"),
                        SPA_PARAM_ROUTE_description, SPA_POD_String("Headphones"), SPA_PARAM_ROUTE_priority,
                        SPA_POD_Int(9900), 0);
    if (available) spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_available, SPA_POD_Id(*available), 0);
    spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_info, SPA_POD_PROP_FLAG_HINT_DICT);
    spa_pod_frame items;
    spa_pod_builder_push_struct(&builder, &items);
    spa_pod_builder_int(&builder, static_cast<std::int32_t>(info.size()) + items_too_many);
    for (const auto& [key, value] : info)
      spa_pod_builder_add(&builder, SPA_POD_String(key), SPA_POD_String(value), static_cast<const char*>(nullptr));
    spa_pod_builder_pop(&builder, &items);
    if (device) spa_pod_builder_add(&builder, SPA_PARAM_ROUTE_device, SPA_POD_Int(*device), 0);
    return read_port(*static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object)));
  }
};

CardPort headphones(Availability availability, bool in_use = false) {
  return {3, SPA_DIRECTION_OUTPUT, availability, "headphones", in_use};
}
CardPort speaker() { return {2, SPA_DIRECTION_OUTPUT, Availability::unknown, "speaker", true}; }
bool plugged(std::string_view form_factor, std::vector<CardPort> ports) { return has_headphones(form_factor, ports); }

TEST(CardPorts, ARouteTellsWhereItLeadsAndWhetherSomethingIsThere) {
  const auto port = RouteOfACard{}.read();
  ASSERT_TRUE(port.has_value());
  EXPECT_EQ(port->index, 3);
  EXPECT_EQ(port->direction, std::uint32_t{SPA_DIRECTION_OUTPUT});
  EXPECT_EQ(port->availability, Availability::yes);
  EXPECT_EQ(port->type, "headphones");
  EXPECT_FALSE(port->device.has_value());
  EXPECT_EQ(RouteOfACard{.device = 4}.read()->device, 4);
  EXPECT_EQ(RouteOfACard{.available = SPA_PARAM_AVAILABILITY_no}.read()->availability, Availability::no);
  EXPECT_EQ(RouteOfACard{.available = SPA_PARAM_AVAILABILITY_unknown}.read()->availability, Availability::unknown);
}

TEST(CardPorts, ARouteThatTellsLessIsStillAPort) {
  EXPECT_EQ(RouteOfACard{.available = std::nullopt}.read()->availability, Availability::unknown);
  EXPECT_EQ((RouteOfACard{.info = {}}.read()->type), "");
  EXPECT_EQ((RouteOfACard{.info = {{"card.profile.port", "3"}}}.read()->type), "");
}

TEST(CardPorts, AnInfoThatCountsMoreItemsThanItHasEndsWhereItDoes) {
  EXPECT_EQ((RouteOfACard{.info = {{"a", "b"}}, .items_too_many = 1 << 30}.read()->type), "");
  EXPECT_EQ((RouteOfACard{.info = {{"port.type", "headset"}}, .items_too_many = -1}.read()->type), "");
}

TEST(CardPorts, WhatIsNoRouteIsNoPort) {
  std::array<std::uint8_t, 64> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
  spa_pod_frame object;
  spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  EXPECT_FALSE(read_port(*static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object))).has_value());
}

TEST(CardPorts, HeadphonesInTheJackArePluggedIn) {
  EXPECT_TRUE(plugged("internal", {speaker(), headphones(Availability::yes)}));
  EXPECT_FALSE(plugged("internal", {speaker(), headphones(Availability::no)}));
  EXPECT_FALSE(plugged("", {}));
}

TEST(CardPorts, AJackThatCantTellCountsWhileItIsInUse) {
  EXPECT_FALSE(plugged("", {speaker(), headphones(Availability::unknown)}));
  EXPECT_TRUE(plugged("", {headphones(Availability::unknown, true)}));
  EXPECT_FALSE(plugged("", {headphones(Availability::no, true)}));
}

TEST(CardPorts, ARouteInUseTakesThePlaceOfTheOneThatServedTheSameNode) {
  CardPort jack = headphones(Availability::unknown);
  CardPort hdmi{5, SPA_DIRECTION_OUTPUT, Availability::yes, "hdmi"};
  CardPort speakers{2, SPA_DIRECTION_OUTPUT, Availability::unknown, "speaker"};
  jack.device = speakers.device = 0;
  hdmi.device = 1;
  std::vector<CardPort> ports;
  note_port(ports, jack, true);
  note_port(ports, hdmi, true);
  EXPECT_TRUE(plugged("", ports)) << "that another node of the card goes elsewhere changes nothing";
  note_port(ports, headphones(Availability::unknown), false);
  EXPECT_TRUE(plugged("", ports)) << "it is listed again";
  note_port(ports, speakers, true);
  EXPECT_FALSE(plugged("", ports));
  EXPECT_EQ(ports.size(), 3u);
}

TEST(CardPorts, AMicrophoneOfAHeadsetIsNoHeadphone) {
  EXPECT_FALSE(plugged("", {{4, SPA_DIRECTION_INPUT, Availability::yes, "headset", true}}));
  EXPECT_TRUE(plugged("", {{4, SPA_DIRECTION_OUTPUT, Availability::yes, "headset", true}}));
}

TEST(CardPorts, ACardThatIsAHeadsetIsPluggedInWhateverItsPortsAreCalled) {
  const CardPort output{0, SPA_DIRECTION_OUTPUT, Availability::unknown, "analog", true};
  EXPECT_TRUE(plugged("headset", {output}));
  EXPECT_TRUE(plugged("headphone", {output}));
  EXPECT_FALSE(plugged("speaker", {output}));
  EXPECT_FALSE(plugged("headset", {{0, SPA_DIRECTION_INPUT, Availability::yes, "mic", true}}));
}

}  // namespace
}  // namespace sonivo::pipewire
