#pragma once

// Query and retrieve in `kestrel serve`: patient-root and study-root C-FIND answered from the
// image database, and C-MOVE of the images of the store to the nodes of the Server table.

#include <string>

class CDatabase;
class Dispatcher;

void AddFindHandlers(Dispatcher& dispatcher);
void AddMoveHandlers(Dispatcher& dispatcher);

// The calling thread's connection to the image database behind `connect` (each worker serves
// one association and keeps its own); null with `error` set when it cannot be had. After a
// failure, DropQueryDatabase lets the next request connect again.
CDatabase* QueryDatabase(const std::string& connect, std::string* error);
void DropQueryDatabase();
