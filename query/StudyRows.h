#pragma once

// The rows of the local study query: one STUDY row of the study-root layout per study of a
// joined Study and Patient record set.

class CResultsArray;
class CStudyQuerySet;

namespace KESTREL::study_rows {

// Appends a row for the current study and every one after it, to the end of the set.
void AddRows(CStudyQuerySet& studies, CResultsArray* results);

}  // namespace KESTREL::study_rows
