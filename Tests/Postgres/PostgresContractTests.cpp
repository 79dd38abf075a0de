#include "PostgresServer.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using Kinds = ::testing::Types<PostgresDatabase>;

}  // namespace
}  // namespace kite::test

#include "EventStore/EventStoreContract.h"
