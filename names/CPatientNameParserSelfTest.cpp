// The parser's built-in self test. It ships inside the library so that a workstation can
// check, on the machine where names are entered, that names come out as the film printer
// and the peers expect. Its cases pin down the rules of every shape.
#include <cstdio>
#include <string>

#include "kestrel/CPatientNameParser.h"

namespace {

// Counts the cases of one group and reports each failure under "group.case".
class Group {
 public:
  explicit Group(int number) : number_(number) {}

  void Check(bool ok) {
    if (ok) {
      ++passed_;
    } else {
      std::printf("Test%d.%d failed\n", number_, run_);
    }
    ++run_;
  }
  void Equal(const std::string& got, const std::string& want) { Check(got == want); }

  // Adds this group's passes to the running total and returns the cases run.
  int Finish(int* passed) const {
    *passed += passed_;
    return run_;
  }
  int passed() const { return passed_; }

 private:
  int number_;
  int passed_ = 0;
  int run_ = 0;
};

// One case of a whole-name parse: the input and every field expected afterwards.
struct NameCase {
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

void CheckFields(Group& g, const CPatientNameParser& p, const NameCase& c) {
  g.Check(p.GetDICOMPN() == c.dicom && p.GetEnglishPN() == c.display && p.GetLastName() == c.last &&
          p.GetFirstName() == c.first && p.GetMiddleName() == c.middle &&
          p.GetNamePrefix() == c.prefix && p.GetNameSuffix() == c.suffix);
}

// Arguments of the formatting operations, in their order: last, first, middle, prefix, suffix.
struct Parts {
  const char* last;
  const char* first;
  const char* middle;
  const char* prefix;
  const char* suffix;
  const char* want;
};

}  // namespace

int CPatientNameParser::Test() {
  using Step = int (*)(int*, int);
  static const Step kGroups[] = {
      TestDefaultConstructor,
      TestPostString,
      TestPreString,
      TestRemoveTerminatingCarets,
      TestContains,
      TestFormatEnglishName,
      TestFormatFilmEnglishName,
      TestGenerateDICOMName,
      TestGetNumberOfComponents,
      TestGetPostIncludingString,
      TestParseDICOMToEnglish,
      TestParseCommaToEnglish,
      TestParseSpaceToEnglish,
      TestCopyConstructor,
      TestParse,
      TestUnknownConstructor,
  };
  int passed = 0;
  int run = 0;
  int number = 0;
  for (Step group : kGroups) run += group(&passed, number++);
  return passed == run ? 1 : 0;
}

int CPatientNameParser::TestDefaultConstructor(int* passed, int testNumber) {
  Group g(testNumber);
  const CPatientNameParser p;
  g.Equal(p.GetDICOMPN(), "");
  g.Equal(p.GetEnglishPN(), "");
  g.Equal(p.GetFirstName(), "");
  g.Equal(p.GetLastName(), "");
  g.Equal(p.GetMiddleName(), "");
  g.Equal(p.GetNamePrefix(), "");
  g.Equal(p.GetNameSuffix(), "");
  const int run = g.Finish(passed);
  std::printf("Test%d : Default Constructor Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestPostString(int* passed, int testNumber) {
  Group g(testNumber);
  static const char* const kCases[][3] = {
      {"", "^", ""},
      {"a", "^", ""},
      {"a^", "^", ""},
      {"^", "^", ""},
      {"a^b", "^", "b"},
      {"^b", "^", "b"},
      {"a^b^c", "^", "b^c"},
      {"Doe, John", ",", " John"},
      {"John Doe", " ", "Doe"},
      {"a  ", " ", " "},
      {"ab--cd", "--", "-cd"},
      {"ab", "", ""},
  };
  for (const auto& c : kCases) g.Equal(GetPostString(c[0], c[1]), c[2]);
  const int run = g.Finish(passed);
  std::printf("Test%d : GetPostString Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestPreString(int* passed, int testNumber) {
  Group g(testNumber);
  static const char* const kCases[][3] = {
      {"", "^", ""},
      {"a", "^", "a"},
      {"a^", "^", "a"},
      {"^b", "^", ""},
      {"a^b^c", "^", "a"},
      {"Van Dam, John", ",", "Van Dam"},
      {"John Doe", " ", "John"},
      {" John", " ", ""},
      {"ab--cd", "--", "ab"},
      {"ab", "", "ab"},
  };
  for (const auto& c : kCases) g.Equal(GetPreString(c[0], c[1]), c[2]);
  const int run = g.Finish(passed);
  std::printf("Test%d : GetPreString Result:  %d out of %d tests passed.\n", testNumber, g.passed(),
              run);
  return run;
}

int CPatientNameParser::TestRemoveTerminatingCarets(int* passed, int testNumber) {
  Group g(testNumber);
  static const char* const kCases[][2] = {
      {"", ""},
      {"^^^", ""},
      {"w^h^y? ^", "w^h^y? "},
      {"and^thus^", "and^thus"},
      {"^ ^ ^", "^ ^ "},
      {"abc", "abc"},
      {"a^^", "a"},
      {"^a", "^a"},
  };
  for (const auto& c : kCases) g.Equal(RemoveTerminatingCarets(c[0]), c[1]);
  const int run = g.Finish(passed);
  std::printf("Test%d : RemoveTerminatingCarets Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestContains(int* passed, int testNumber) {
  Group g(testNumber);
  g.Check(ContainsCaret("Doe^John") == 1);
  g.Check(ContainsCaret("^") == 1);
  g.Check(ContainsCaret("Doe, John") == 0);
  g.Check(ContainsCaret("") == 0);
  g.Check(ContainsComma("Doe,John") == 1);
  g.Check(ContainsComma("Doe^John") == 0);
  g.Check(ContainsComma("") == 0);
  g.Check(ContainsSpace("John Doe") == 1);
  g.Check(ContainsSpace("John\tDoe") == 0);
  g.Check(ContainsSpace("") == 0);
  const int run = g.Finish(passed);
  std::printf("Test%d : Contains Result:  %d out of %d tests passed.\n", testNumber, g.passed(),
              run);
  return run;
}

int CPatientNameParser::TestFormatEnglishName(int* passed, int testNumber) {
  Group g(testNumber);
  static const Parts kCases[] = {
      {"Doe", "John", "Paul", "Mr.", "M.Sc Ph.d", "Mr. John Paul Doe, M.Sc Ph.d"},
      {"", "", "", "Mr.", "M.Sc Ph.d", "Mr., M.Sc Ph.d"},
      {"", "", "", "", "M.Sc Ph.d", "M.Sc Ph.d"},
      {"", "John", "", "", "M.Sc Ph.d", "John, M.Sc Ph.d"},
      {"Doe", "", "Paul", "Mr.", "", "Mr. Paul Doe"},
      {"van Dam", "john", "", "", "", "john van Dam"},
      {"", "", "", "", "", ""},
  };
  for (const Parts& c : kCases) {
    CPatientNameParser p;
    p.FormatEnglishName(c.last, c.first, c.middle, c.prefix, c.suffix);
    g.Equal(p.GetEnglishPN(), c.want);
  }
  // The components are stored as given, untrimmed, and the DICOM form is not touched.
  CPatientNameParser p;
  p.FormatEnglishName(" Doe", "John ", "Paul", "Mr.", "Ph.D");
  g.Check(p.GetLastName() == " Doe" && p.GetFirstName() == "John " && p.GetMiddleName() == "Paul" &&
          p.GetNamePrefix() == "Mr." && p.GetNameSuffix() == "Ph.D" && p.GetDICOMPN().empty());
  const int run = g.Finish(passed);
  std::printf("Test%d : FormatEnglishName Result:  %d out of %i tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestFormatFilmEnglishName(int* passed, int testNumber) {
  Group g(testNumber);
  static const Parts kCases[] = {
      {"Doe", "John", "Paul", "Mr.", "Ph.D", "DOE, JOHN PAUL"},
      {"Doe", "John", "", "", "", "DOE, JOHN"},
      {"", "John", "Paul", "", "", "JOHN PAUL"},
      {"Doe", "", "Paul", "", "", "DOE, PAUL"},
      {"Doe", "", "", "Mr.", "", "DOE"},
      {"", "", "Paul", "", "", "PAUL"},
      {"", "John", "", "", "Ph.D", "JOHN"},
      {"", "", "", "Mr.", "Ph.D", ""},
  };
  for (const Parts& c : kCases) {
    CPatientNameParser p;
    p.FormatFilmEnglishName(c.last, c.first, c.middle, c.prefix, c.suffix);
    g.Equal(p.GetEnglishPN(), c.want);
  }
  // Film drops the titles from the stored components too, but keeps the names' case.
  CPatientNameParser p("Doe", "John", "Paul", "Mr.", "Ph.D");
  p.FormatFilmEnglishName("Doe", "John", "Paul", "Mr.", "Ph.D");
  g.Check(p.GetLastName() == "Doe" && p.GetFirstName() == "John" && p.GetMiddleName() == "Paul" &&
          p.GetNamePrefix().empty() && p.GetNameSuffix().empty() &&
          p.GetDICOMPN() == "DOE^JOHN^PAUL^MR.^PH.D");
  const int run = g.Finish(passed);
  std::printf("Test%d : FormatFilmEnglishName Result:  %d out of %i tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestGenerateDICOMName(int* passed, int testNumber) {
  Group g(testNumber);
  static const Parts kCases[] = {
      {"", "John", "", "", "", "^JOHN"},
      {"", "", "Paul", "", "", "^^PAUL"},
      {"Doe", "", "", "", "", "DOE"},
      {"", "", "", "", "M.Sc Ph.d", "^^^^M.SC PH.D"},
      {"", "", "", "Mr.", "", "^^^MR."},
      {"Doe", "", "Paul", "Mr.", "M.Sc Ph.d", "DOE^^PAUL^MR.^M.SC PH.D"},
      {"Doe", "John", "Paul", "", "", "DOE^JOHN^PAUL"},
      {"Doe", "", "", "", "M.Sc Ph.d", "DOE^^^^M.SC PH.D"},
      {"", "", "", "", "", ""},
      // UTF-8 text keeps its bytes: only ASCII letters are upper-cased.
      {"M\xC3\xBCller", "Zo\xC3\xAB", "", "", "", "M\xC3\xBCLLER^ZO\xC3\xAB"},
  };
  for (const Parts& c : kCases) {
    CPatientNameParser p;
    p.GenerateDICOMName(c.last, c.first, c.middle, c.prefix, c.suffix);
    g.Equal(p.GetDICOMPN(), c.want);
  }
  // Only the DICOM form changes.
  CPatientNameParser p("Doe", "John", "", "", "");
  p.GenerateDICOMName("Roe", "Jane", "", "", "");
  g.Check(p.GetDICOMPN() == "ROE^JANE" && p.GetEnglishPN() == "John Doe" &&
          p.GetLastName() == "Doe" && p.GetFirstName() == "John");
  const int run = g.Finish(passed);
  std::printf("Test%d : GenerateDICOMName Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestGetNumberOfComponents(int* passed, int testNumber) {
  Group g(testNumber);
  struct Case {
    const char* text;
    const char* delimiter;
    int want;
  };
  static const Case kCases[] = {
      {"", "^", 0},
      {"a", "^", 0},
      {"ab", "^", 0},
      {"abc", "^", 0},
      {"^", "^", 0},
      {"^^", "^", 0},
      {"^^^", "^", 0},
      {"^b", "^", 1},
      {"a^", "^", 1},
      {"^bc", "^", 1},
      {"ab^", "^", 1},
      {"^^c", "^", 1},
      {"a^^", "^", 1},
      {"^b^", "^", 1},
      {"a^c", "^", 2},
      {"^hey^jack^and^^jill ^^", "^", 4},
      {"a^b^c^adf   ^^", "^", 4},
      {"   ^ ^ ^ ^", "^", 4},
      {"^D^a^af^fa^e", "^", 5},
      {"^adsf^ a  ^  ^fs ^sd ^", "^", 5},
      {"a", ",", 0},
      {",,", ",", 0},
      {"a,", ",", 1},
      {"a,b,c,d,", ",", 4},
      {"a,,,,,,d", ",", 2},
      {"a,,d, ,", ",", 3},
      {",ds,,a", ",", 2},
      {",,s,", ",", 1},
      {"a", " ", 0},
      {"   ", " ", 0},
      {" a 1 3", " ", 3},
      {"a d    f", " ", 3},
      {"s da", " ", 2},
      {"   ffdd", " ", 1},
      {"fa   fa", " ", 2},
      {"a^b", "", 0},
  };
  for (const Case& c : kCases) g.Check(GetNumberOfComponents(c.text, c.delimiter) == c.want);
  const int run = g.Finish(passed);
  std::printf("Test%d:  GetNumberOfComponents Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestGetPostIncludingString(int* passed, int testNumber) {
  Group g(testNumber);
  static const char* const kCases[][3] = {
      {"a^", "^", ""},    {"a^ ", "^", "^ "}, {"b^a", "^", "^a"},
      {"a, ", ",", ", "}, {"b,a", ",", ",a"}, {"a  ", " ", "  "},
      {"b a", " ", " a"}, {"", "^", ""},      {"ab", "^", ""},
  };
  for (const auto& c : kCases) g.Equal(GetPostIncludingString(c[0], c[1]), c[2]);
  const int run = g.Finish(passed);
  std::printf("Test%d:  GetPostIncludingString Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestParseDICOMToEnglish(int* passed, int testNumber) {
  Group g(testNumber);
  static const NameCase kCases[] = {
      {"Doe ^John^Paul ^Mr.^M.Sc Ph.d", 0, "DOE^JOHN^PAUL^MR.^M.SC PH.D",
       "Mr. John Paul Doe, M.Sc Ph.d", "Doe", "John", "Paul", "Mr.", "M.Sc Ph.d"},
      {"Doe^ John ^ Paul ^^M.Sc Ph.d", 0, "DOE^JOHN^PAUL^^M.SC PH.D", "John Paul Doe, M.Sc Ph.d",
       "Doe", "John", "Paul", "", "M.Sc Ph.d"},
      {"^  ^Paul^Mr.^  M.Sc Ph.d", 0, "^^PAUL^MR.^M.SC PH.D", "Mr. Paul, M.Sc Ph.d", "", "", "Paul",
       "Mr.", "M.Sc Ph.d"},
      {"^ ^ ^   Mr.^M.Sc Ph.d", 0, "^^^MR.^M.SC PH.D", "Mr., M.Sc Ph.d", "", "", "", "Mr.",
       "M.Sc Ph.d"},
      {"^ John", 0, "^JOHN", "John", "", "John", "", "", ""},
      // A sixth piece has nowhere to go.
      {"Doe^John^Paul^Mr.^Jr.^Extra", 0, "DOE^JOHN^PAUL^MR.^JR.", "Mr. John Paul Doe, Jr.", "Doe",
       "John", "Paul", "Mr.", "Jr."},
      // Only blanks are trimmed; a tab is kept.
      {"\tDoe ^John", 0, "\tDOE^JOHN", "John \tDoe", "\tDoe", "John", "", "", ""},
      // Film: titles leave the display form and the components, but not the DICOM form.
      {"Doe^John^Paul^Mr.^M.Sc Ph.d", 1, "DOE^JOHN^PAUL^MR.^M.SC PH.D", "DOE, JOHN PAUL", "Doe",
       "John", "Paul", "", ""},
  };
  for (const NameCase& c : kCases) {
    CPatientNameParser p;
    p.ParseDICOMToEnglish(c.input, c.film);
    CheckFields(g, p, c);
  }
  const int run = g.Finish(passed);
  std::printf("Test%d : ParseDICOMToEnglish Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestParseCommaToEnglish(int* passed, int testNumber) {
  Group g(testNumber);
  struct Case {
    const char* input;
    const char* english;
    const char* film;
  };
  static const Case kCases[] = {
      {"", "", ""},
      {"John", "John", "JOHN"},
      {"Doe, John", "John Doe", "DOE, JOHN"},
      {"Doe,John", "John Doe", "DOE, JOHN"},
      {"Van Dam, John", "John Van Dam", "VAN DAM, JOHN"},
      {"Van Dam,John", "John Van Dam", "VAN DAM, JOHN"},
      {"Doe, John Paul", "John Paul Doe", "DOE, JOHN PAUL"},
      {"Dam, John Peter Paul", "John Peter Paul Dam", "DAM, JOHN PETER PAUL"},
      {"Van Dam, John Paul", "John Paul Van Dam", "VAN DAM, JOHN PAUL"},
      {"Van Dam, John Peter Paul", "John Peter Paul Van Dam", "VAN DAM, JOHN PETER PAUL"},
      {"Dam, John Peter Paul Mary", "John Peter Paul Mary Dam", "DAM, JOHN PETER PAUL MARY"},
      {"Doe,   John   Paul ", "John Paul Doe", "DOE, JOHN PAUL"},
  };
  for (const Case& c : kCases) {
    CPatientNameParser english;
    english.ParseCommaToEnglish(c.input, 0);
    g.Equal(english.GetEnglishPN(), c.english);
    CPatientNameParser film;
    film.ParseCommaToEnglish(c.input, 1);
    g.Equal(film.GetEnglishPN(), c.film);
  }
  CPatientNameParser p;
  p.ParseCommaToEnglish("Van Dam, John Peter Paul", 0);
  g.Check(p.GetDICOMPN() == "VAN DAM^JOHN^PETER PAUL" && p.GetLastName() == "Van Dam" &&
          p.GetFirstName() == "John" && p.GetMiddleName() == "Peter Paul");
  const int run = g.Finish(passed);
  std::printf("Test%d : ParseCommaToEnglish Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestParseSpaceToEnglish(int* passed, int testNumber) {
  Group g(testNumber);
  static const NameCase kCases[] = {
      {"", 0, "", "", "", "", "", "", ""},
      {"John ", 0, "^JOHN", "John", "", "John", "", "", ""},
      {"John Doe", 0, "DOE^JOHN", "John Doe", "Doe", "John", "", "", ""},
      {"John Doe", 1, "DOE^JOHN", "John Doe", "Doe", "John", "", "", ""},
      {"JOHN DOE", 1, "DOE^JOHN", "JOHN DOE", "DOE", "JOHN", "", "", ""},
      {"John  Doe", 1, "DOE^JOHN", "John  Doe", "Doe", "John", "", "", ""},
      {"John Paul Dam", 0, "DAM^JOHN^PAUL", "John Paul Dam", "Dam", "John", "Paul", "", ""},
      {"John Paul Dam", 1, "DAM^JOHN^PAUL", "DAM, JOHN PAUL", "Dam", "John", "Paul", "", ""},
      {"John Peter Paul Dam", 0, "DAM^JOHN^PETER PAUL", "John Peter Paul Dam", "Dam", "John",
       "Peter Paul", "", ""},
      {"John Peter Paul Dam", 1, "DAM^JOHN^PETER PAUL", "DAM, JOHN PETER PAUL", "Dam", "John",
       "Peter Paul", "", ""},
      {"John Paul Van Dam", 0, "DAM^JOHN^PAUL VAN", "John Paul Van Dam", "Dam", "John", "Paul Van",
       "", ""},
      {"John Paul Van Dam", 1, "DAM^JOHN^PAUL VAN", "DAM, JOHN PAUL VAN", "Dam", "John", "Paul Van",
       "", ""},
      {"John Peter Paul Van Dam", 0, "VAN DAM^JOHN^PETER PAUL", "John Peter Paul Van Dam",
       "Van Dam", "John", "Peter Paul", "", ""},
      {"John Peter Paul Van Dam", 1, "VAN DAM^JOHN^PETER PAUL", "VAN DAM, JOHN PETER PAUL",
       "Van Dam", "John", "Peter Paul", "", ""},
  };
  for (const NameCase& c : kCases) {
    CPatientNameParser p;
    p.ParseSpaceToEnglish(c.input, c.film);
    CheckFields(g, p, c);
  }
  const int run = g.Finish(passed);
  std::printf("Test%d : ParseSpaceToEnglish Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestCopyConstructor(int* passed, int testNumber) {
  Group g(testNumber);
  const NameCase want = {"",
                         0,
                         "DOE^JANE^ANN^MRS.^M.SC PH.D EXECUTIVE DIRECTOR",
                         "Mrs. Jane Ann Doe, M.Sc Ph.d Executive Director",
                         "Doe",
                         "Jane",
                         "Ann",
                         "Mrs.",
                         "M.Sc Ph.d Executive Director"};
  const CPatientNameParser unique("Doe", "Jane", "Ann", "Mrs.", "M.Sc Ph.d Executive Director");
  CheckFields(g, unique, want);
  const CPatientNameParser copy(unique);
  CheckFields(g, copy, want);
  CPatientNameParser assigned("Roe^Richard", 1);
  assigned = unique;
  CheckFields(g, assigned, want);
  // The copy is independent of the original.
  CPatientNameParser changed(unique);
  changed.Parse("Roe, Richard", 0);
  CheckFields(g, unique, want);
  g.Equal(changed.GetEnglishPN(), "Richard Roe");
  const int run = g.Finish(passed);
  std::printf("Test%d : Unique Constructor 2 Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestParse(int* passed, int testNumber) {
  Group g(testNumber);
  static const NameCase kCases[] = {
      {"Doe", 0, "DOE", "Doe", "Doe", "", "", "", ""},
      {"Doe", 1, "DOE", "Doe", "Doe", "", "", "", ""},
      {"Doe ", 0, "^DOE", "Doe", "", "Doe", "", "", ""},
      {"John Doe", 1, "DOE^JOHN", "John Doe", "Doe", "John", "", "", ""},
      {"Doe, John Paul", 1, "DOE^JOHN^PAUL", "DOE, JOHN PAUL", "Doe", "John", "Paul", "", ""},
      {"Doe^John^^Mr.^Jr.", 1, "DOE^JOHN^^MR.^JR.", "DOE, JOHN", "Doe", "John", "", "", ""},
      {"Doe^John^^Mr.^Jr.", 0, "DOE^JOHN^^MR.^JR.", "Mr. John Doe, Jr.", "Doe", "John", "", "Mr.",
       "Jr."},
      // The caret wins over the comma and the blank, the comma over the blank.
      {"Doe, Jr.^John", 0, "DOE, JR.^JOHN", "John Doe, Jr.", "Doe, Jr.", "John", "", "", ""},
      {"Van Dam, John", 0, "VAN DAM^JOHN", "John Van Dam", "Van Dam", "John", "", "", ""},
  };
  for (const NameCase& c : kCases) {
    CPatientNameParser p;
    p.Parse(c.input, c.film);
    CheckFields(g, p, c);
  }
  // An empty name clears both forms but keeps the components parsed before.
  CPatientNameParser p("Doe^John^Paul", 0);
  p.Parse("", 0);
  CheckFields(g, p, {"", 0, "", "", "Doe", "John", "Paul", "", ""});
  const int run = g.Finish(passed);
  std::printf("Test%d : ParseUnkownToEnglish Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}

int CPatientNameParser::TestUnknownConstructor(int* passed, int testNumber) {
  Group g(testNumber);
  static const char* const kCases[][3] = {
      {"^^Paul^Mr.^M.Sc Ph.d", "Mr. Paul, M.Sc Ph.d", "^^PAUL^MR.^M.SC PH.D"},
      {"Van Dam, John", "John Van Dam", "VAN DAM^JOHN"},
      {"John Peter Paul Dam", "John Peter Paul Dam", "DAM^JOHN^PETER PAUL"},
      {"", "", ""},
  };
  for (const auto& c : kCases) {
    const CPatientNameParser p(c[0], 0);
    g.Check(p.GetEnglishPN() == c[1] && p.GetDICOMPN() == c[2]);
  }
  const int run = g.Finish(passed);
  std::printf("Test%d : UnknownConstructor Result:  %d out of %d tests passed.\n", testNumber,
              g.passed(), run);
  return run;
}
