#include "kestrel/CPatientNameParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Expected {
  const char* input;
  int film;
  const char* dicom;
  const char* display;
  const char* last;
  const char* first;
  const char* middle;
  const char* prefix;
  const char* suffix;
};

void ExpectFields(const CPatientNameParser& p, const Expected& e) {
  SCOPED_TRACE(::testing::Message() << "input \"" << e.input << "\" film " << e.film);
  EXPECT_EQ(p.GetDICOMPN(), e.dicom);
  EXPECT_EQ(p.GetEnglishPN(), e.display);
  EXPECT_EQ(p.GetLastName(), e.last);
  EXPECT_EQ(p.GetFirstName(), e.first);
  EXPECT_EQ(p.GetMiddleName(), e.middle);
  EXPECT_EQ(p.GetNamePrefix(), e.prefix);
  EXPECT_EQ(p.GetNameSuffix(), e.suffix);
}

// Every shape, through the public constructor, with every field checked.
TEST(CPatientNameParserTest, ParsesEveryShapeIntoAllFields) {
  const Expected cases[] = {
      // DICOM shape: pieces trimmed of blanks only; a sixth piece is dropped.
      {"Doe ^John^Paul ^Mr.^M.Sc Ph.d", 0, "DOE^JOHN^PAUL^MR.^M.SC PH.D",
       "Mr. John Paul Doe, M.Sc Ph.d", "Doe", "John", "Paul", "Mr.", "M.Sc Ph.d"},
      {"Doe^John^Paul^Mr.^M.Sc Ph.d", 1, "DOE^JOHN^PAUL^MR.^M.SC PH.D", "DOE, JOHN PAUL", "Doe",
       "John", "Paul", "", ""},
      {"a^b^c^d^e^f^g", 0, "A^B^C^D^E", "d b c a, e", "a", "b", "c", "d", "e"},
      {"Doe^\tJohn", 0, "DOE^\tJOHN", "\tJohn Doe", "Doe", "\tJohn", "", "", ""},
      {"^^^^", 0, "", "", "", "", "", "", ""},
      // Comma shape; the last name is taken as typed before the comma.
      {"Van Dam,John", 1, "VAN DAM^JOHN", "VAN DAM, JOHN", "Van Dam", "John", "", "", ""},
      {"Doe,", 0, "DOE", "Doe", "Doe", "", "", "", ""},
      {", John", 1, "^JOHN", "JOHN", "", "John", "", "", ""},
      // Space shape.
      {"John Peter Paul Van Dam", 1, "VAN DAM^JOHN^PETER PAUL", "VAN DAM, JOHN PETER PAUL",
       "Van Dam", "John", "Peter Paul", "", ""},
      {"John Paul Van Dam", 0, "DAM^JOHN^PAUL VAN", "John Paul Van Dam", "Dam", "John", "Paul Van",
       "", ""},
      {"JOHN DOE", 1, "DOE^JOHN", "JOHN DOE", "DOE", "JOHN", "", "", ""},
      {"john doe", 1, "DOE^JOHN", "john doe", "doe", "john", "", "", ""},
      // One word: the last name, as typed even for film; with a stray blank, the first name.
      {"Doe", 1, "DOE", "Doe", "Doe", "", "", "", ""},
      {"Doe ", 1, "^DOE", "DOE", "", "Doe", "", "", ""},
      {"Doe\tJohn", 0, "DOE\tJOHN", "Doe\tJohn", "Doe\tJohn", "", "", "", ""},
  };
  for (const Expected& e : cases) ExpectFields(CPatientNameParser(e.input, e.film), e);
}

// The choices this library made where the rules leave input open; see the header.
TEST(CPatientNameParserTest, OpenPointsFollowWhatAPersonTyped) {
  const Expected cases[] = {
      // Four or more given names after the comma: all but the first are middle names.
      {"Dam, John Peter Paul Mary", 0, "DAM^JOHN^PETER PAUL MARY", "John Peter Paul Mary Dam",
       "Dam", "John", "Peter Paul Mary", "", ""},
      {"Dam,John  Peter   Paul Mary Ann", 1, "DAM^JOHN^PETER PAUL MARY ANN",
       "DAM, JOHN PETER PAUL MARY ANN", "Dam", "John", "Peter Paul Mary Ann", "", ""},
      // Two words with extra blanks: the components are the words, the display is as typed.
      {"John   Doe", 0, "DOE^JOHN", "John   Doe", "Doe", "John", "", "", ""},
      {" John Doe", 0, "DOE^JOHN", " John Doe", "Doe", "John", "", "", ""},
      {"John Doe  ", 1, "DOE^JOHN", "John Doe  ", "Doe", "John", "", "", ""},
      // One word among blanks.
      {"  Doe", 0, "^DOE", "Doe", "", "Doe", "", "", ""},
      {" Doe  ", 1, "^DOE", "DOE", "", "Doe", "", "", ""},
      // Only blanks.
      {"   ", 0, "", "", "", "", "", "", ""},
      // Five or more words with extra blanks: the rest keeps its inner blanks, not its outer.
      {"John  Peter Paul  Van Dam ", 0, "VAN DAM^JOHN^PETER PAUL", "John Peter Paul Van Dam",
       "Van Dam", "John", "Peter Paul", "", ""},
      {"John Peter Paul de la  Cruz", 0, "DE LA  CRUZ^JOHN^PETER PAUL",
       "John Peter Paul de la  Cruz", "de la  Cruz", "John", "Peter Paul", "", ""},
  };
  for (const Expected& e : cases) ExpectFields(CPatientNameParser(e.input, e.film), e);
}

TEST(CPatientNameParserTest, UpperCasingLeavesNonAsciiBytesAlone) {
  // "Müller^Zoë" in UTF-8: only the ASCII letters change.
  const CPatientNameParser p("M\xC3\xBCller^Zo\xC3\xAB", 1);
  EXPECT_EQ(p.GetDICOMPN(), "M\xC3\xBCLLER^ZO\xC3\xAB");
  EXPECT_EQ(p.GetEnglishPN(), "M\xC3\xBCLLER, ZO\xC3\xAB");
  EXPECT_EQ(p.GetLastName(), "M\xC3\xBCller");
  // Latin-1 bytes too: 0xE9 must not become 0xC9.
  const CPatientNameParser latin1("Ren\xE9^J\xF6rg", 0);
  EXPECT_EQ(latin1.GetDICOMPN(), "REN\xE9^J\xF6RG");
}

// A parser is reused by callers for one name after another; nothing may leak between calls.
TEST(CPatientNameParserTest, LaterCallsReplaceEarlierResults) {
  CPatientNameParser p("Doe^John^Paul^Mr.^Jr.", 0);
  p.Parse("Roe, Richard", 0);
  ExpectFields(p, {"Roe, Richard", 0, "ROE^RICHARD", "Richard Roe", "Roe", "Richard", "", "", ""});

  p.Parse("Doe^John^^Mr.^Jr.", 1);
  ExpectFields(
      p, {"Doe^John^^Mr.^Jr.", 1, "DOE^JOHN^^MR.^JR.", "DOE, JOHN", "Doe", "John", "", "", ""});
  p.Parse("Doe^John^^Mr.^Jr.", 0);
  EXPECT_EQ(p.GetNamePrefix(), "Mr.");
  EXPECT_EQ(p.GetEnglishPN(), "Mr. John Doe, Jr.");

  // An empty name clears the two forms only.
  p.Parse("", 1);
  ExpectFields(p, {"", 1, "", "", "Doe", "John", "", "Mr.", "Jr."});

  // The two-word form sets the components even though it skips formatting.
  p.Parse("Jane Roe", 0);
  ExpectFields(p, {"Jane Roe", 0, "ROE^JANE", "Jane Roe", "Roe", "Jane", "", "", ""});

  // Formatting alone leaves the DICOM form, and the DICOM form alone leaves the rest.
  p.FormatEnglishName("Poe", "Ed", "Allan", "", "");
  EXPECT_EQ(p.GetDICOMPN(), "ROE^JANE");
  p.GenerateDICOMName("X", "Y", "", "", "");
  ExpectFields(p, {"", 0, "X^Y", "Ed Allan Poe", "Poe", "Ed", "Allan", "", ""});
}

TEST(CPatientNameParserTest, CopiesAreIndependent) {
  CPatientNameParser original("Doe", "Jane", "Ann", "Mrs.", "Ph.D");
  CPatientNameParser copy(original);
  CPatientNameParser assigned;
  assigned = original;
  original.Parse("Roe, Richard", 1);
  for (const CPatientNameParser* p : {&copy, &assigned}) {
    ExpectFields(*p, {"Doe^Jane^Ann^Mrs.^Ph.D", 0, "DOE^JANE^ANN^MRS.^PH.D",
                      "Mrs. Jane Ann Doe, Ph.D", "Doe", "Jane", "Ann", "Mrs.", "Ph.D"});
  }
  EXPECT_EQ(original.GetEnglishPN(), "ROE, RICHARD");
}

TEST(CPatientNameParserTest, HelpersWithUnusualDelimiters) {
  // Multi-character delimiters are matched whole but skipped by one character.
  EXPECT_EQ(CPatientNameParser::GetPostString("Doe^^John", "^^"), "^John");
  EXPECT_EQ(CPatientNameParser::GetPostIncludingString("Doe^^John", "^^"), "^^^John");
  EXPECT_EQ(CPatientNameParser::GetNumberOfComponents("a--b----c--", "--"), 3);
  EXPECT_EQ(CPatientNameParser::GetNumberOfComponents("a-b", "--"), 0);
  // An empty delimiter never matches, and must not loop.
  EXPECT_EQ(CPatientNameParser::GetPreString("Doe", ""), "Doe");
  EXPECT_EQ(CPatientNameParser::GetPostString("Doe", ""), "");
  EXPECT_EQ(CPatientNameParser::GetPostIncludingString("Doe", ""), "");
  EXPECT_EQ(CPatientNameParser::GetNumberOfComponents("Doe", ""), 0);
  EXPECT_EQ(CPatientNameParser::GetNumberOfComponents("", ""), 0);
}

// Long, hostile input must finish quickly and give results that keep the output's rules.
TEST(CPatientNameParserTest, HostileLongInputStaysWellFormed) {
  std::mt19937 random(20240611);
  const char alphabet[] = {'^', ',', '\t', ' ', ' ', 'a', 'Z', '\xC3', '.', '\0'};
  std::vector<std::string> inputs = {std::string(10000, '^'), std::string(10000, ','),
                                     std::string(10000, '\t'), std::string(10000, ' '),
                                     std::string(10000, 'x')};
  for (int i = 0; i < 20; ++i) {
    std::string text(10000, ' ');
    for (char& c : text) c = alphabet[random() % sizeof alphabet];
    inputs.push_back(text);
  }
  inputs.push_back(std::string(5000, ' ') + "John" + std::string(5000, ','));
  inputs.push_back("Doe," + std::string(9996, ' '));

  for (const std::string& input : inputs) {
    for (int film : {0, 1}) {
      SCOPED_TRACE(::testing::Message()
                   << "input starting \"" << input.substr(0, 20) << "\" film " << film);
      const CPatientNameParser p(input, film);
      const std::string dicom = p.GetDICOMPN();
      ASSERT_LE(dicom.size(), input.size() + 4);
      if (!dicom.empty()) {
        EXPECT_NE(dicom.back(), '^');
      }
      EXPECT_EQ(dicom.find_first_of("abcdefghijklmnopqrstuvwxyz"), std::string::npos);
      if (CPatientNameParser::ContainsCaret(input)) {
        // Five components at most, each cut at carets and trimmed of blanks.
        EXPECT_LE(std::count(dicom.begin(), dicom.end(), '^'), 4);
        for (const std::string& part : {p.GetLastName(), p.GetFirstName(), p.GetMiddleName(),
                                        p.GetNamePrefix(), p.GetNameSuffix()}) {
          EXPECT_EQ(part.find('^'), std::string::npos);
          if (!part.empty()) {
            EXPECT_TRUE(part.front() != ' ' && part.back() != ' ') << "[" << part << "]";
          }
        }
      }
      EXPECT_LE(p.GetEnglishPN().size(), input.size() + 8);
    }
  }
  EXPECT_EQ(CPatientNameParser(std::string(10000, '^'), 0).GetDICOMPN(), "");
  EXPECT_EQ(CPatientNameParser(std::string(10000, ' '), 1).GetEnglishPN(), "");
  EXPECT_EQ(CPatientNameParser(std::string(10000, '\t'), 0).GetLastName(),
            std::string(10000, '\t'));
  EXPECT_EQ(CPatientNameParser::GetNumberOfComponents(std::string(10000, ','), ","), 0);
}

// The self test's report is read by people and by scripts: every summary line is fixed.
TEST(CPatientNameParserTest, SelfTestPassesAndPrintsTheFixedSummaryLines) {
  const char* const formats[] = {
      "Test%d : Default Constructor Result:  %d out of %d tests passed.",
      "Test%d : GetPostString Result:  %d out of %d tests passed.",
      "Test%d : GetPreString Result:  %d out of %d tests passed.",
      "Test%d : RemoveTerminatingCarets Result:  %d out of %d tests passed.",
      "Test%d : Contains Result:  %d out of %d tests passed.",
      "Test%d : FormatEnglishName Result:  %d out of %d tests passed.",
      "Test%d : FormatFilmEnglishName Result:  %d out of %d tests passed.",
      "Test%d : GenerateDICOMName Result:  %d out of %d tests passed.",
      "Test%d:  GetNumberOfComponents Result:  %d out of %d tests passed.",
      "Test%d:  GetPostIncludingString Result:  %d out of %d tests passed.",
      "Test%d : ParseDICOMToEnglish Result:  %d out of %d tests passed.",
      "Test%d : ParseCommaToEnglish Result:  %d out of %d tests passed.",
      "Test%d : ParseSpaceToEnglish Result:  %d out of %d tests passed.",
      "Test%d : Unique Constructor 2 Result:  %d out of %d tests passed.",
      "Test%d : ParseUnkownToEnglish Result:  %d out of %d tests passed.",
      "Test%d : UnknownConstructor Result:  %d out of %d tests passed.",
  };
  ::testing::internal::CaptureStdout();
  const int result = CPatientNameParser::Test();
  const std::string output = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, 1);

  std::istringstream lines(output);
  std::string line;
  int group = 0;
  const std::regex counts(R"(.* Result:  (\d+) out of (\d+) tests passed\.)");
  while (std::getline(lines, line)) {
    ASSERT_LT(group, 16) << "extra line: " << line;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, counts)) << line;
    const int passed = std::stoi(m[1]);
    const int run = std::stoi(m[2]);
    EXPECT_GT(run, 0) << line;
    EXPECT_EQ(passed, run) << line;
    char want[200];
    std::snprintf(want, sizeof want, formats[group], group, passed, run);
    EXPECT_EQ(line, want);
    ++group;
  }
  EXPECT_EQ(group, 16);
  EXPECT_EQ(output.back(), '\n');
}

}  // namespace
