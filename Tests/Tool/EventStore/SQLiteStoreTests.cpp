#include "Support/TemporaryFolder.h"
#include "Tool/CollectorDatabase.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

class SQLiteKind {
 public:
  std::string place() const { return _folder.path() / "events.db"; }
  std::string query(const std::string& sql) const { return test::query(place(), sql); }

 private:
  TemporaryFolder _folder;
};

using Kinds = ::testing::Types<SQLiteKind>;

}  // namespace
}  // namespace kite::test

#include "EventStoreContract.h"
