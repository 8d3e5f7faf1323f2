#include <gtest/gtest.h>

#include <string>

#include "kestrel/VR_XXTYPED.h"

namespace {

TEST(PersonNameConversion, FreeFormToComponents) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"", ""},
      {"   ", ""},
      {"Doe", "Doe"},
      {"  Doe  ", "Doe"},
      {"John Doe", "Doe^John"},
      {"John   Doe", "Doe^John"},
      {"John Paul Doe", "Doe^John^Paul"},
      // Four and more words are grouped as the patient name parser groups them.
      {"John Paul Van Dam", "Dam^John^Paul Van"},
      {"John Peter Paul Van Dam", "Van Dam^John^Peter Paul"},
      {"Doe, John", "Doe^John"},
      {"Doe,John", "Doe^John"},
      {"Van Dam, John Paul", "Van Dam^John^Paul"},
      {"Dam, John Peter Paul Mary", "Dam^John^Peter Paul Mary"},
      {"Doe,", "Doe"},
      {", John", "^John"},
      // Case is kept: a value, not a display form.
      {"john doe", "doe^john"},
      // Titles and suffixes.
      {"Dr. John Doe", "Doe^John^^Dr."},
      {"dr John Doe", "Doe^John^^dr"},
      {"Mrs. Doe", "Doe^^^Mrs."},
      {"Doe, Dr. John Paul", "Doe^John^Paul^Dr."},
      {"Doe, John, Jr.", "Doe^John^^^Jr."},
      {"Doe, John Paul, M.Sc Ph.D", "Doe^John^Paul^^M.Sc Ph.D"},
      {"John Doe, Jr.", "Doe^John^^^Jr."},
      {"Dr. John Paul Doe, Ph.D.", "Doe^John^Paul^Dr.^Ph.D."},
      {"John Doe Jr", "Doe^John^^^Jr"},
      {"Doe, Jr.", "Doe^^^^Jr."},
      // Not a suffix: a comma then a given name.
      {"Doe, Mary", "Doe^Mary"},
      // Initials without blanks after their periods.
      {"J.P.Doe", "Doe^J.^P."},
      {"St.John Doe", "Doe^St.John"},
      // Already in component form: trimmed, trailing empty components dropped.
      {"Doe ^ John ^^^", "Doe^John"},
      {"^John", "^John"},
      {"Yamada^Tarou=山田^太郎", "Yamada^Tarou=山田^太郎"},
  };
  VR_PN pn;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(pn.FreeFormToComponents(c.in), c.out);
  }
}

TEST(PersonNameConversion, ComponentsToFreeForm) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"", ""},
      {"Doe", "Doe"},
      {"Doe^John", "Doe, John"},
      {"Doe^John^Paul", "Doe, John Paul"},
      {"Van Dam^John^Paul", "Van Dam, John Paul"},
      {"Doe^John^Paul^Dr.^Ph.D.", "Doe, Dr. John Paul, Ph.D."},
      {"Doe^^^^Jr.", "Doe, Jr."},
      {"Doe^^^^Executive Director", "Doe, , Executive Director"},
      {"^John", ", John"},
      {"^^^Mr.", ", Mr."},
      {" Doe ^ John ", "Doe, John"},
      {"Yamada^Tarou=山田^太郎", "Yamada, Tarou"},
  };
  VR_PN pn;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(pn.ComponentsToFreeForm(c.in), c.out);
  }
}

// What ComponentsToFreeForm writes reads back to the same components.
TEST(PersonNameConversion, FreeFormReadsBack) {
  const char* names[] = {
      "Doe",
      "Doe^John",
      "Doe^John^Paul",
      "Van Dam^John^Peter Paul",
      "Doe^John^Paul^Dr.^Ph.D.",
      "Doe^John^^Mrs.",
      "Doe^^^^Jr.",
      "Doe^^^^Executive Director",
      "Doe^John^^^M.Sc Ph.D Executive Director",
      "^John",
      "^John^Paul",
      "^^^Mr.",
  };
  VR_PN pn;
  for (const char* name : names) {
    SCOPED_TRACE(name);
    std::string freeForm = pn.ComponentsToFreeForm(name);
    EXPECT_EQ(pn.FreeFormToComponents(freeForm), name) << "free form: " << freeForm;
  }
}

TEST(PersonNameConversion, ElementHelpersStoreAndReadTheValue) {
  VR_PN pn(0x0010, 0x0010);
  ASSERT_TRUE(pn.SetFreeForm("Dr. John Doe"));
  EXPECT_EQ(std::string(static_cast<const char*>(pn.Data), pn.Length), "Doe^John^^Dr.");
  std::string out;
  ASSERT_TRUE(pn.GetFreeForm(out));
  EXPECT_EQ(out, "Doe, Dr. John");
  VR_PN empty(0x0010, 0x0010);
  EXPECT_FALSE(empty.GetFreeForm(out));
}

}  // namespace
