#pragma once

// The schema scripts of schema/*.sql, built into the library (SchemaText.cpp is generated from
// them by this folder's CMakeLists.txt).

namespace KESTREL::store {

extern const char* const kSchema_image_sqlite;
extern const char* const kSchema_image_postgresql;
extern const char* const kSchema_ris_sqlite;
extern const char* const kSchema_ris_postgresql;

}  // namespace KESTREL::store
