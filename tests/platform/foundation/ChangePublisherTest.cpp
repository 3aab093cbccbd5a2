#include "peximage/platform/foundation/ChangePublisher.h"

#include <gtest/gtest.h>

#include <string>

namespace pex {
namespace {

using Subscription = ChangePublisher::Subscription;

TEST(ChangePublisher, CallsObserversInOrderWhileTheySubscribe) {
    ChangePublisher publisher;
    std::string calls;
    Subscription a = publisher.subscribe([&] { calls += 'a'; });
    Subscription b = publisher.subscribe([&] { calls += 'b'; });
    publisher.send();
    a.unsubscribe();
    a.unsubscribe();
    publisher.send();
    {
        const Subscription moved = std::move(b);
        publisher.send();
    }
    publisher.send();
    EXPECT_EQ(calls, "abbb");
}

TEST(ChangePublisher, AnObserverMayChangeTheSubscriptions) {
    ChangePublisher publisher;
    std::string calls;
    Subscription late;
    Subscription victim;
    const Subscription first = publisher.subscribe([&] {
        calls += '1';
        victim.unsubscribe(); // not called any more, not even by this send
        late = publisher.subscribe([&] { calls += 'L'; });
    });
    victim = publisher.subscribe([&] { calls += 'v'; });
    publisher.send();
    EXPECT_EQ(calls, "1");
    publisher.send(); // the old late one is replaced by a new one, which comes with the next send
    EXPECT_EQ(calls, "11");
}

TEST(ChangePublisher, WeakObserversEndWithTheirOwner) {
    ChangePublisher publisher;
    auto owner = std::make_shared<int>(0);
    publisher.subscribe(owner, [number = owner.get()] { ++*number; });
    publisher.send();
    EXPECT_EQ(*owner, 1);
    EXPECT_EQ(owner.use_count(), 1);
    owner.reset();
    publisher.send(); // would write to freed memory
}

TEST(ChangePublisher, MayGoBeforeItsSubscriptionsAndDuringASend) {
    Subscription subscription;
    auto publisher = std::make_unique<ChangePublisher>();
    int after = 0;
    subscription = publisher->subscribe([&] { publisher.reset(); });
    const Subscription second = publisher->subscribe([&] { ++after; });
    publisher->send();
    EXPECT_EQ(after, 1);
    subscription.unsubscribe();
}

} // namespace
} // namespace pex
