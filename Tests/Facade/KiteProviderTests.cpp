#include <Kite/Kite.h>

#include <gtest/gtest.h>

#include <memory>

namespace kite::test {
namespace {

class ApplicationOfAHost final : public KiteProvider {
 public:
  std::shared_ptr<KiteManager> kite() const override { return _kite; }

 private:
  std::shared_ptr<KiteManager> _kite = std::make_shared<KiteNoop>();
};

TEST(KiteProviderTests, anObjectOfTheHostsHandsOutItsFacade) {
  const std::unique_ptr<const KiteProvider> provider = std::make_unique<ApplicationOfAHost>();
  EXPECT_EQ(provider->kite()->currentSessionId(), UUID::noop());
  EXPECT_EQ(provider->kite(), provider->kite());
}

TEST(KiteErrorTests, carriesTheKeyThatWasRefused) {
  const KiteError error{KiteError::Case::invalidMonetizationKey, "plan"};
  EXPECT_EQ(error.key, "plan");
  EXPECT_NE(error, (KiteError{KiteError::Case::invalidMonetizationKey, "price"}));
}

}  // namespace
}  // namespace kite::test
