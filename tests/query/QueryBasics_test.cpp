// Query rows and their ownership, key matching, and the worklist's modality tables.
#include <gtest/gtest.h>

#include <string>

#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/KeyMatching.h"

namespace {

// A row that tells when it is destroyed.
struct CountedRow : CResult {
  explicit CountedRow(int& destroyed) : destroyed_(destroyed) {}
  ~CountedRow() override { ++destroyed_; }
  int& destroyed_;
};

TEST(CResultsArray, ListDestructorLeavesRowsButDeleteAllFreesThem) {
  int destroyed = 0;
  CountedRow* kept = new CountedRow(destroyed);
  kept->SetAtGrow(3, new std::string("M"));
  ASSERT_EQ(kept->GetSize(), 4);
  EXPECT_EQ(kept->GetAt(2), nullptr) << "slots made by growth are null";
  {
    CResultsArray list;
    list.Add(kept);
  }
  EXPECT_EQ(destroyed, 0) << "the list's destructor must not free the caller's rows";
  EXPECT_EQ(*kept->GetAt(3), "M");

  CResultsArray list;
  list.Add(kept);
  list.Add(new CountedRow(destroyed));
  list.InsertAt(5, nullptr);  // grows with null rows, which DeleteAll skips
  list.DeleteAll();
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(list.GetSize(), 0);
  list.DeleteAll();
  EXPECT_EQ(list.GetSize(), 0);
}

TEST(CResultsArray, ArrayOperations) {
  CResult row;
  row.SetSize(2);
  row.SetAt(0, new std::string("a"));
  row.InsertAt(1, new std::string("b"));
  row.Add(new std::string("c"));
  ASSERT_EQ(row.GetSize(), 4);
  EXPECT_EQ(*row[1], "b");
  EXPECT_EQ(row.GetAt(2), nullptr);
  CResult other;
  other.Append(row);  // shares the strings: only `row` frees them
  EXPECT_EQ(other.GetAt(3), row.GetAt(3));
  other.RemoveAll();
  std::string* removed = row.GetAt(1);
  row.RemoveAt(1);
  delete removed;
  EXPECT_EQ(*row[2], "c");
  EXPECT_EQ(row.GetAt(-1), nullptr);
  EXPECT_EQ(row.GetAt(9), nullptr);
  row.SetAt(9, nullptr);  // out of range: nothing
  EXPECT_EQ(row.GetSize(), 3);
}

TEST(ModalityNames, BothTablesInOrder) {
  struct Case {
    const char* in;
    const char* toRIS;
    const char* toDICOM;
  };
  const Case cases[] = {
      {"MG", "Breast Imaging", "MG"},
      {"CR", "General Radiography", "CR"},
      {"DX", "General Radiography", "DX"},
      {"NM", "Nuclear Medicine", "NM"},
      {"RF", "Interventional", "RF"},  // the second "RF" row never matches
      {"XA", "Angiography", "XA"},
      {"US", "Ultrasound", "US"},
      {"MR", "MRI", "MR"},
      {"General Radiography", "General Radiography", "CR"},
      {"Interventional", "Interventional", "RF"},
      {"GI/GU", "GI/GU", "RF"},
      {"MRI", "MRI", "MR"},
      {"Breast Imaging", "Breast Imaging", "MG"},
      {"CT", "CT", "CT"},
      {"PT", "PT", "PT"},
      {"", "", ""},
      {"mg", "mg", "mg"},
      {"mri", "mri", "mri"},
      {"MR ", "MR ", "MR "},
  };
  for (const Case& c : cases) {
    std::string out = "stale";
    CModalityWorklistQuery::ConvertDICOM2RISModality(out, c.in);
    EXPECT_EQ(out, c.toRIS) << "DICOM to RIS of '" << c.in << "'";
    CModalityWorklistQuery::ConvertRIS2DICOMModality(out, c.in);
    EXPECT_EQ(out, c.toDICOM) << "RIS to DICOM of '" << c.in << "'";
  }
}

TEST(KeyMatching, Table) {
  struct Case {
    const char* key;
    const char* value;
    const char* vr;
    bool matches;
  };
  const Case cases[] = {
      {"", "anything", "LO", true},
      {"", "", "LO", true},
      {"X", "", "LO", false},
      {"DOE^J*", "DOE^JOHN", "PN", true},
      {"doe^j*", "DOE^JOHN ", "PN", true},  // names without case, padding ignored
      {"doe*", "DOE", "LO", false},         // other VRs with case
      {"D?E", "DOE", "LO", true},
      {"D?E", "DOOE", "LO", false},
      {"*A*B*", "xxAyyBzz", "LO", true},
      {"*A*B", "xxAyyBzzB", "LO", true},
      {"*A*B", "xxAyyBz", "LO", false},
      {"**", "", "LO", true},
      {"*", "", "LO", true},
      {"CT", "CT ", "CS", true},
      {"CT", "CTX", "CS", false},
      {"20240301", "20240301", "DA", true},
      {"20240301-20240302", "20240302", "DA", true},
      {"20240301-20240302", "20240303", "DA", false},
      {"-20240302", "19991231", "DA", true},
      {"20240301-", "20240228", "DA", false},
      {"2024.03.01", "20240301", "DA", true},
      {"0930-1000", "093000", "TM", true},
      {"0930-1000", "100059", "TM", true},  // an upper bound covers its last unit
      {"0930-1000", "100100", "TM", false},
      {"10", "100000", "TM", true},
      {"10:30", "103000", "TM", true},
      {"-20240131", "20240131235959", "DT", true},
      {"20240101-", "", "DA", false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(KESTREL::MatchKey(c.key, c.value, c.vr), c.matches)
        << "key '" << c.key << "' value '" << c.value << "' " << c.vr;
}

TEST(KeyMatching, WildcardsNeverBlowUp) {
  // A pattern built to make back-tracking matchers exponential.
  std::string pattern(40, '*');
  pattern += "b";
  EXPECT_FALSE(KESTREL::MatchWildcard(pattern, std::string(5000, 'a')));
}

}  // namespace
