#pragma once

#include <string>

#include "kestrel/Export.h"

// Turns a patient name, typed by a person or received from a peer, into its five components
// (last, first, middle, prefix, suffix) and two finished forms:
//   - the DICOM form "LAST^FIRST^MIDDLE^PREFIX^SUFFIX", upper case, trailing carets removed;
//   - a display form, either the English form "Prefix First Middle Last, Suffix" (case kept)
//     or the film form "LAST, FIRST MIDDLE" (upper case, printed on film).
// Both display forms share one field, read by GetEnglishPN(): it holds whichever ran last.
//
// Four input shapes are recognised by Parse(), in this order:
//   "Doe^John^Paul^Mr.^Ph.D"  DICOM: pieces trimmed of blanks, a sixth caret piece is dropped;
//   "Doe, John Paul"          comma: last name before the comma, given names after it;
//   "John Paul Doe"           space: first, middle names, last;
//   "Doe"                     one word: the last name, shown as typed even for film.
//
// Choices for input the shapes do not settle, made for names typed by people:
//   - Comma form with four or more words after the comma ("Dam, John Peter Paul Mary"): the
//     first word is the first name and every other word goes to the middle name, joined by one
//     blank ("Peter Paul Mary"), as with two and three words. Nothing is lost or moved to the
//     last name.
//   - Space form with two words: the components are the two words whatever blanks surround
//     them ("John   Doe", " John Doe " give first "John", last "Doe", DICOM "DOE^JOHN"). The
//     display form stays the input exactly as typed, blanks included, and is never upper-cased.
//   - Space form with one word and stray blanks (" Doe", "Doe  "): the word without the blanks
//     is the first name (DICOM "^DOE").
//   - Space form with only blanks ("   "): every component and both forms become empty.
//   - Space form with five or more words: the text after the third word, without the blanks at
//     its ends, is the last name ("John Peter Paul Van Dam": last "Van Dam").
//   - An empty delimiter never occurs in a text (GetPreString gives the text, GetPostString "",
//     GetNumberOfComponents 0).
//
// Blanks are the only white space handled: a tab is an ordinary character. Upper-casing
// changes ASCII letters only, so UTF-8 text survives. Nothing here fails: every input, of any
// length, yields some result.
class KESTREL_API CPatientNameParser {
 public:
  // All seven strings empty.
  CPatientNameParser();
  // Stores the components exactly as given (no trimming) and builds the English and DICOM forms.
  CPatientNameParser(std::string last, std::string first, std::string middle, std::string prefix,
                     std::string suffix);
  // Parse(name, filmFlag) on an empty parser.
  CPatientNameParser(std::string name, int filmFlag);
  CPatientNameParser(const CPatientNameParser& other);
  CPatientNameParser& operator=(const CPatientNameParser& other);
  virtual ~CPatientNameParser();

  // Recognises the shape of `name` and sets the components and both forms. With `filmFlag`
  // non-zero the display form is the film form, which also clears the stored prefix and suffix
  // (the DICOM form still carries them). Two exceptions keep the display form as typed
  // whatever the flag: a single word, and two words separated by blanks. An empty name empties
  // the two forms and leaves the components of an earlier call in place.
  void Parse(std::string name, int filmFlag);

  // Stores the five components as given and sets the English form.
  void FormatEnglishName(std::string last, std::string first, std::string middle,
                         std::string prefix, std::string suffix);
  // Stores last, first and middle, clears the stored prefix and suffix, and sets the film form.
  void FormatFilmEnglishName(std::string last, std::string first, std::string middle,
                             std::string prefix, std::string suffix);
  // Sets the DICOM form only; the components and the display form are left alone. Empty
  // leading and inner components keep their carets ("^^PAUL").
  void GenerateDICOMName(std::string last, std::string first, std::string middle,
                         std::string prefix, std::string suffix);

  // Splitting helpers, meant for one-character delimiters; the first occurrence counts.
  // Text before the delimiter; the whole text when the delimiter does not occur.
  static std::string GetPreString(std::string text, std::string delimiter);
  // Text after the first character of the delimiter; "" when it does not occur. With a longer
  // delimiter the rest of it stays at the front of the result.
  static std::string GetPostString(std::string text, std::string delimiter);
  // The delimiter followed by GetPostString(), or "" when that is empty ("a^" gives "").
  static std::string GetPostIncludingString(std::string text, std::string delimiter);
  // The text without its trailing carets; blanks before them stay ("a ^^" gives "a ").
  static std::string RemoveTerminatingCarets(std::string text);
  // Number of non-empty pieces between delimiters (a piece of blanks counts), or 0 when the
  // delimiter does not occur at all ("a" gives 0, "a^" gives 1).
  static int GetNumberOfComponents(std::string text, const std::string& delimiter);
  // 1 when the text holds "^", "," or " " respectively, else 0.
  static int ContainsCaret(std::string text);
  static int ContainsComma(std::string text);
  static int ContainsSpace(std::string text);

  std::string GetDICOMPN() const;
  // The display form: English or film, whichever was produced last.
  std::string GetEnglishPN() const;
  std::string GetFirstName() const;
  std::string GetLastName() const;
  std::string GetMiddleName() const;
  std::string GetNamePrefix() const;
  std::string GetNameSuffix() const;

  // Runs the built-in self test: sixteen groups of cases, numbered from 0. Prints a line for
  // every failed case and a summary line for every group to standard output. Returns 1 when
  // every case passed, else 0.
  static int Test();

 private:
  void ParseDICOMToEnglish(std::string name, int filmFlag);
  void ParseCommaToEnglish(std::string name, int filmFlag);
  void ParseSpaceToEnglish(std::string name, int filmFlag);
  // Ends every shape but the two-word one: the display form chosen by the flag, then DICOM.
  void FinishParse(const std::string& last, const std::string& first, const std::string& middle,
                   const std::string& prefix, const std::string& suffix, int filmFlag);

  // Self-test groups: each adds its passed cases to *passed, prints its summary line under
  // number `testNumber` and returns the number of cases it ran.
  static int TestDefaultConstructor(int* passed, int testNumber);
  static int TestPostString(int* passed, int testNumber);
  static int TestPreString(int* passed, int testNumber);
  static int TestRemoveTerminatingCarets(int* passed, int testNumber);
  static int TestContains(int* passed, int testNumber);
  static int TestFormatEnglishName(int* passed, int testNumber);
  static int TestFormatFilmEnglishName(int* passed, int testNumber);
  static int TestGenerateDICOMName(int* passed, int testNumber);
  static int TestGetNumberOfComponents(int* passed, int testNumber);
  static int TestGetPostIncludingString(int* passed, int testNumber);
  static int TestParseDICOMToEnglish(int* passed, int testNumber);
  static int TestParseCommaToEnglish(int* passed, int testNumber);
  static int TestParseSpaceToEnglish(int* passed, int testNumber);
  static int TestCopyConstructor(int* passed, int testNumber);
  static int TestParse(int* passed, int testNumber);
  static int TestUnknownConstructor(int* passed, int testNumber);

  // In this order: the two finished forms, then the five components as given.
  std::string dicomName_;
  std::string englishName_;
  std::string firstName_;
  std::string lastName_;
  std::string middleName_;
  std::string namePrefix_;
  std::string nameSuffix_;
};
