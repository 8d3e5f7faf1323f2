#pragma once

// The words of the print side for a DIMSE status: the names of the print objects and DIMSE
// operations, the short line of the generic status interpreter, and the sentences that
// interpret a status for one kind of print object and one operation.

#include <cstdint>

namespace KESTREL {
namespace print {

// "BasicFilmSession", ..., "Unknown" for an index out of range.
const char* ObjectKindName(int objectKind);
// "NCreate", ..., "Unknown" for an index out of range.
const char* OperationName(int operation);

// Class word and meaning of a status for the generic interpreter; "Unknown" and "Status code
// not recognized" for a status it does not list.
void GenericStatusWords(uint16_t status, const char** statusClass, const char** meaning);

// The sentence interpreting `status` for the object kind and operation, or the default sentence
// when none is listed.
const char* InterpretationSentence(int objectKind, int operation, uint16_t status);

// The sentences of a print-specific status class (top four bits B or C), and of a status
// neither the general table nor those classes explain.
extern const char* const kPrintWarningSentence;
extern const char* const kPrintFailureSentence;
extern const char* const kUndeterminedStatusSentence;

}  // namespace print
}  // namespace KESTREL
