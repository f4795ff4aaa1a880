// How long a context lives: as long as its record or a running call holds it.
#include "minidriver/frame/provider_context.h"

#include <memory>
#include <utility>

#include "harness/linked_test.h"

namespace orvane::test {
namespace {

class ContextHolders : public LinkedTest {};

// With all that it has of the token.
TEST_F(ContextHolders, TheLastOneDestroysTheContext) {
  bind();
  auto list = std::make_shared<const ContainerList>();
  const std::weak_ptr<const ContainerList> kept = list;
  {
    const ContextRef call = contextOf(bound_);
    call->containers = std::move(list);
    const ContextRef another = contextOf(bound_);
    EXPECT_EQ(takeContext(bound_)->containers, kept.lock());
    EXPECT_FALSE(kept.expired()) << "two calls still run";
  }
  EXPECT_TRUE(kept.expired());
}

}  // namespace
}  // namespace orvane::test
