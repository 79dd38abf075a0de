#include "Collector/Store/PostgresReader.h"
#include "Collector/Store/PostgresStore.h"
#include "Collector/Store/SQLiteReader.h"
#include "Collector/Store/SQLiteStore.h"

namespace kite::tool {

Result<std::unique_ptr<EventStore>, std::string> openStore(const std::string& place,
                                                           RefusedBodiesBound bound) {
  try {
    if (isPostgresAddress(place)) return {std::make_unique<PostgresStore>(place, bound)};
    return {std::make_unique<SQLiteStore>(place, bound)};
  } catch (const StoreError& error) {
    return Failure{"cannot use the database " + withoutPassword(place) + ": " + error.what()};
  }
}

Result<std::unique_ptr<EventReader>, std::string> openReader(const std::string& place) {
  try {
    if (isPostgresAddress(place)) return {std::make_unique<PostgresReader>(place)};
    return {std::make_unique<SQLiteReader>(place)};
  } catch (const StoreError& error) {
    return Failure{"cannot read the database " + withoutPassword(place) + ": " + error.what()};
  }
}

}  // namespace kite::tool
