#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "QRTSysTSThreadLocalStorage.h"

namespace {

// Runs before main, as the error stack and the code page layer may.
struct EarlyUser {
  int key;
  int setResult;
  void* seen;
  EarlyUser() : key(QRTSysTSThreadLocalStorage::CreateNewKey()) {
    setResult = QRTSysTSThreadLocalStorage::SetValue(key, this);
    seen = QRTSysTSThreadLocalStorage::GetValue(key);
  }
};
EarlyUser S_earlyUser;

struct Tracked {
  std::atomic<bool>* destroyed;
  ~Tracked() { *destroyed = true; }
};

}  // namespace

TEST(QRTSysTSThreadLocalStorage, WorksFromStaticConstructors) {
  EXPECT_GE(S_earlyUser.key, 1);
  EXPECT_EQ(0, S_earlyUser.setResult);
  EXPECT_EQ(&S_earlyUser, S_earlyUser.seen);
  EXPECT_EQ(&S_earlyUser, QRTSysTSThreadLocalStorage::GetValue(S_earlyUser.key));
}

TEST(QRTSysTSThreadLocalStorage, KeysCountUpAndAreNeverReused) {
  int first = QRTSysTSThreadLocalStorage::CreateNewKey();
  EXPECT_GT(first, S_earlyUser.key);
  std::vector<int> keys[2];
  std::thread a([&] {
    for (int i = 0; i < 500; ++i) keys[0].push_back(ZYNSysThreadLocalStorageCreateNewKey());
  });
  for (int i = 0; i < 500; ++i) keys[1].push_back(QRTSysTSThreadLocalStorage::CreateNewKey());
  a.join();
  std::set<int> all(keys[0].begin(), keys[0].end());
  all.insert(keys[1].begin(), keys[1].end());
  EXPECT_EQ(1000u, all.size());
  EXPECT_GT(*all.begin(), first);
  EXPECT_TRUE(std::is_sorted(keys[0].begin(), keys[0].end()) && std::is_sorted(keys[1].begin(), keys[1].end()));
}

// That each thread sees its own values shows in the error stack and thread context tests.
TEST(QRTSysTSThreadLocalStorage, EndedThreadLosesItsMapButNotItsValues) {
  int key = QRTSysTSThreadLocalStorage::CreateNewKey();
  std::atomic<bool> destroyed(false);
  Tracked* value = new Tracked{&destroyed};
  std::thread([&] { QRTSysTSThreadLocalStorage::SetValue(key, value); }).join();
  EXPECT_FALSE(destroyed);

  void* seen = value;
  std::thread([&] { seen = QRTSysTSThreadLocalStorage::GetValue(key); }).join();
  EXPECT_EQ(nullptr, seen);
  delete value;
  EXPECT_TRUE(destroyed);
}
