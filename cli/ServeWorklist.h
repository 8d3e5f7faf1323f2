#pragma once

#include <string>

class Dispatcher;

// Answers modality worklist C-FIND (PS3.4 Annex K) from the RIS order database behind the
// ODBC connect string `risConnect`; a C-FIND for any other SOP class is answered "SOP class
// not supported" (0122).
void AddWorklistHandler(Dispatcher& dispatcher, const std::string& risConnect);
