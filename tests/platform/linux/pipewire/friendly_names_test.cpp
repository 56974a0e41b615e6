#include "platform/linux/pipewire/friendly_names.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace sonivo::pipewire {
namespace {

TEST(FriendlyNames, WithoutARuleADescriptionStaysAsItIs) {
  const FriendlyNames names;
  EXPECT_EQ(names.name_of("Headset", "usb"), "Headset");
  EXPECT_EQ(names.name_of("", "usb"), "usb");
}

TEST(FriendlyNames, TheFirstRuleThatFitsTheDescriptionOrTheNodeAddsItsName) {
  FriendlyNames names;
  ASSERT_EQ(names.add("# built in\n\n sof-hda-dsp = Realtek Microphone \nDigital Microphone = Other\n"), 0);
  EXPECT_EQ(names.name_of("Digital Microphone", "alsa_input.pci.sof-hda-dsp.source"),
            "Digital Microphone (Realtek Microphone)");
  EXPECT_EQ(names.name_of("Digital Microphone", "alsa_input"), "Digital Microphone (Other)");
  EXPECT_EQ(names.name_of("Headset", "usb"), "Headset");
}

TEST(FriendlyNames, ANameThatIsThereAlreadyIsNotAddedTwice) {
  FriendlyNames names;
  ASSERT_EQ(names.add("array = Realtek High Definition Audio"), 0);
  EXPECT_EQ(names.name_of("array (Realtek High Definition Audio)", "x"), "array (Realtek High Definition Audio)");
}

TEST(FriendlyNames, ATableWithALineThatIsNoRuleIsRefusedWhole) {
  FriendlyNames names;
  EXPECT_EQ(names.add("a = b\nno rule\n"), 2);
  EXPECT_EQ(names.add("= b"), 1);
  EXPECT_EQ(names.add("a ="), 1);
  EXPECT_EQ(names.name_of("a", "x"), "a");
}

TEST(FriendlyNames, AFileSaysWhatIsWrongWithIt) {
  const test::TemporaryFolder folder;
  FriendlyNames names;
  EXPECT_EQ(names.add_file(folder.write("good", "a = b\n")), "");
  EXPECT_EQ(names.name_of("a", "x"), "a (b)");
  const std::string bad = folder.write("bad", "a = b\nwrong\n");
  EXPECT_EQ(names.add_file(bad), "Line 2 of the table of microphone names " + bad + " isn't FRAGMENT = NAME.");
  const std::string none = folder / "none";
  EXPECT_EQ(names.add_file(none), "The table of microphone names " + none + " can't be read.");
  const std::string large = folder.write("large", std::string(70000, '#'));
  EXPECT_EQ(names.add_file(large), "The table of microphone names " + large + " is larger than 64 KiB.");
}

TEST(FriendlyNames, OfSeveralTablesTheFirstHoldsAndAWrongOneIsLeftOut) {
  const test::TemporaryFolder folder;
  const std::string bad = folder.write("bad", "wrong\n");
  const std::vector<std::filesystem::path> tables{folder / "none", folder.write("own", "a = mine\n"), bad,
                                                  folder.write("installed", "a = other\nb = B\n")};
  std::vector<std::string> faults;
  const FriendlyNames names = names_of_tables(tables, faults);
  EXPECT_EQ(names.name_of("a", "x"), "a (mine)");
  EXPECT_EQ(names.name_of("b", "x"), "b (B)");
  EXPECT_EQ(faults, std::vector{"Line 1 of the table of microphone names " + bad + " isn't FRAGMENT = NAME."});
}

}  // namespace
}  // namespace sonivo::pipewire
