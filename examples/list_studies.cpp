// Lists the studies of the image database, patient by patient, through the record sets.
// usage: list_studies [CONNECT]   (default: the embedded SQLite database of the Kestrel home)
#include <kestrel/kestrel.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  const std::string connect =
      argc > 1 ? argv[1] : KESTREL::GetEmbeddedImageConnect(KESTREL::GetKestrelHome());
  try {
    CDatabase database;
    database.Open(connect);  // throws CDBException when the database cannot be reached
    // The join of Study and Patient, read-only; Filter and Sort are SQL with bracketed names,
    // which the record set translates for the database it is connected to.
    CStudyQuerySet studies(&database);
    studies.Sort = "[Patient].PatientsName, [Study].StudyDate";
    studies.Open();
    int count = 0;
    for (; !studies.IsEOF(); studies.MoveNext(), ++count)
      std::printf("%s\t%s\t%s\t%s\n", studies.PatientsName.c_str(),
                  studies.PatientPatientID.c_str(), studies.StudyDate.c_str(),
                  studies.StudyInstanceUID.c_str());
    std::printf("%d studies\n", count);
  } catch (const CDBException& e) {
    std::fprintf(stderr, "database: %s\n", e.GetErrorMessage().c_str());
    return 3;
  }
  return 0;
}
