#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "QRTSysChildProcess.h"
#include "ZYNSysLifeCycle.h"
#include "ZYNSysLifeCycleManager.h"
#include "ZYNSysList.h"

namespace {

std::vector<std::string> S_calls;

void Log(char const* what, int module, int argument) {
  S_calls.push_back(what + std::to_string(module) + (argument < 0 ? "" : ":" + std::to_string(argument)));
}

template <int N>
void Construct(void*) {
  Log("init", N, -1);
}
template <int N>
void ChangeState(int state) {
  Log("state", N, state);
}
template <int N>
void SystemCall(int call) {
  Log("call", N, call);
}

template <int N>
void RegisterModule(ZYNSysLifeCycleManager& manager, unsigned short flag) {
  manager.Register(Construct<N>, ChangeState<N>, SystemCall<N>, flag);
}

std::vector<std::string> TakeCalls() {
  std::vector<std::string> calls;
  calls.swap(S_calls);
  return calls;
}

// Modules 1..5 in an order that the dispatch must rearrange; module 6 is refused for its
// flag, and a null constructor registers nothing.
void RegisterSample(ZYNSysLifeCycleManager& manager) {
  RegisterModule<1>(manager, 0);
  RegisterModule<2>(manager, 0xA005);
  RegisterModule<3>(manager, 0x10);
  RegisterModule<4>(manager, 0xA001);
  RegisterModule<6>(manager, 0xA005);
  RegisterModule<5>(manager, 0xA000);
  manager.Register(nullptr, ChangeState<7>, SystemCall<7>, 0xA002);
}

}  // namespace

TEST(ZYNSysLifeCycleTest, DispatchRunsPrivateModulesByFlagThenTheProgramsInOrder) {
  ZYNSysLifeCycleManager manager;
  RegisterSample(manager);
  TakeCalls();
  EXPECT_EQ(manager.DispatchInitialization(), 0);
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"init5", "init4", "init2", "init1", "init3"}));
  EXPECT_EQ(manager.DispatchInitialization(), -1);
  EXPECT_TRUE(TakeCalls().empty());

  manager.DispatchStateChange(3);
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"state5:3", "state4:3", "state2:3", "state1:3", "state3:3"}));
  manager.DispatchSystemCall(8);
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"call5:8", "call4:8", "call2:8", "call1:8", "call3:8"}));

  manager.DispatchFinalization();
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"state3:0", "state1:0", "state2:0", "state4:0", "state5:0"}));
  manager.DispatchFinalization();
  EXPECT_TRUE(TakeCalls().empty());
}

TEST(ZYNSysLifeCycleTest, LibraryModulesJoinTheirLibraryAndFinalizeFirst) {
  ZYNSysLifeCycleManager manager;
  RegisterModule<1>(manager, 0);
  void* handle = &handle;
  EXPECT_EQ(manager.AddDynamicObj("early", &handle), nullptr) << "no library before initialisation";
  manager.DispatchInitialization();
  TakeCalls();

  ZYNSysLifeCycleListOfDynamicObj* library = manager.AddDynamicObj("plugin", &handle);
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(handle, nullptr);
  // What the library's static constructors would do while it is being opened.
  EXPECT_NE(manager.Register(Construct<8>, ChangeState<8>, nullptr, 0), nullptr);
  EXPECT_NE(manager.Register(Construct<9>, ChangeState<9>, nullptr, 0), nullptr);
  int fakeHandle = 0;
  EXPECT_EQ(manager.ProcessLoadContext(library, "plugin", &fakeHandle), 0);
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"init8", "init9"}));
  EXPECT_EQ(manager.Register(Construct<2>, ChangeState<2>, nullptr, 0), nullptr) << "back to the program's list";
  EXPECT_EQ(manager.FindDynamicObj(&fakeHandle), library);

  void* again = nullptr;
  EXPECT_EQ(manager.AddDynamicObj("plugin", &again), library);
  EXPECT_EQ(again, &fakeHandle);
  manager.ClearCurrentDynamicObj();

  manager.DispatchStateChange(4);
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"state1:4", "state2:4"})) << "libraries are left out";
  manager.DispatchFinalization();
  EXPECT_EQ(TakeCalls(), (std::vector<std::string>{"state9:0", "state8:0", "state2:0", "state1:0"}));
  EXPECT_EQ(manager.AddDynamicObj("late", &again), nullptr) << "no library during finalisation";
}

namespace {
// Counts the comparisons it is asked for.
class CountingList : public ZYNSysList {
 public:
  CountingList(ZYNSysListType type, bool duplicates) : ZYNSysList(type, duplicates) {}
  ~CountingList() override { removeall(); }
  mutable int compares = 0;

 protected:
  int ChildCompareItem(void const* left, void const* right) const override {
    compares++;
    return *static_cast<int const*>(right) - *static_cast<int const*>(left);
  }
};
}  // namespace

TEST(ZYNSysListTest, TypesDecideSortingAndWrapping) {
  struct Case {
    ZYNSysListType type;
    bool duplicates;
    std::vector<int> expected;
    bool wraps;
  };
  Case const cases[] = {
      {ZYNSysListQueue, false, {3, 1, 2, 1}, false},
      {ZYNSysListSortedQueue, false, {1, 2, 3}, false},
      {ZYNSysListSorted, true, {1, 1, 2, 3}, false},
      {ZYNSysListRing, false, {3, 1, 2, 1}, true},
  };
  int values[] = {3, 1, 2, 1};
  for (Case const& c : cases) {
    CountingList list(c.type, c.duplicates);
    for (int& value : values) list.Add(&value);
    std::vector<int> items;
    for (void* item = list.GetFirst(); item != nullptr && items.size() < 10; item = list.GetNext()) {
      items.push_back(*static_cast<int*>(item));
      if (list.Count() == static_cast<int>(items.size())) break;
    }
    EXPECT_EQ(items, c.expected) << c.type;
    list.GetLast();
    EXPECT_EQ(list.GetNext() != nullptr, c.wraps) << c.type;
    if (c.type == ZYNSysListQueue || c.type == ZYNSysListRing) {
      EXPECT_EQ(list.compares, 0) << "appends blindly";
    }
  }
}

TEST(ZYNSysListTest, RemovalsKeepTheLinksIntact) {
  CountingList list(ZYNSysListLinear, true);
  int values[] = {5, 10, 20, 30, 40};
  for (int& value : values) list.addtail(&value);
  EXPECT_EQ(list.Remove(&values[2]), 0);
  EXPECT_EQ(list.Remove(2ul), 0);
  EXPECT_EQ(list.Remove(9ul), -1);
  EXPECT_EQ(list.removetail(), nullptr);
  EXPECT_EQ(*static_cast<int*>(list.GetLast()), 10);
  EXPECT_EQ(*static_cast<int*>(list.GetPrevious()), 5);
  EXPECT_EQ(list.GetPrevious(), nullptr);
  EXPECT_EQ(list.Count(), 2);
}

// Modules of this test binary, registered by its static constructors as real modules are.
namespace {
[[maybe_unused]] const int S_staticModules[] = {
    ZYNSysLifeCycleGlobalFactory(Construct<21>, ChangeState<21>, SystemCall<21>),
    ZYNSysLifeCycleGlobalFactoryPrivate(static_cast<ZYNSysLifeCyclePriorFlag>(0xA003), Construct<22>, ChangeState<22>,
                                        SystemCall<22>),
    ZYNSysLifeCycleGlobalFactoryPrivate(static_cast<ZYNSysLifeCyclePriorFlag>(0xA002), Construct<23>, ChangeState<23>,
                                        SystemCall<23>),
    ZYNSysLifeCycleGlobalFactoryPrivate(static_cast<ZYNSysLifeCyclePriorFlag>(0xA002), Construct<24>, ChangeState<24>,
                                        SystemCall<24>),
    ZYNSysLifeCycleGlobalFactory(Construct<25>, nullptr, nullptr),
};
}  // namespace

TEST(ZYNSysLifeCycleChild, DispatchesTheProcessModules) {
  if (!QRTSysIsChild()) GTEST_SKIP() << "runs as a child of DispatchReachesModulesRegisteredBeforeMain";
  // libc6 ships libpcprofile.so, whose constructor does nothing unless asked to.
  void* handle = nullptr;
  printf("early=%d\n", ZYNSysLifeCycleDynamicLoad("pcprofile", &handle));
  ZYNSysLifeCycleDispatchInitialization();
  int loaded = ZYNSysLifeCycleDynamicLoad("pcprofile", &handle);
  void* context = nullptr;
  int known = ZYNSysLifeCycleDispatchDynamicPrepareUnloadContext(&context, handle);
  int unloaded = ZYNSysLifeCycleDynamicUnload(&handle);
  printf("load=%d known=%d unload=%d handle=%d\n", loaded, known, unloaded, handle == nullptr ? 0 : 1);
  ZYNSysLifeCycleDispatchStateChange(6);
  ZYNSysLifeCycleDispatchFinalization();
  printf("second=%d\n", ZYNSysLifeCycleDispatchInitialization());
  std::string joined;
  for (std::string const& call : S_calls) joined += call + " ";
  printf("calls=%s\n", joined.c_str());
}

TEST(ZYNSysLifeCycleTest, DispatchReachesModulesRegisteredBeforeMain) {
  for (int result : S_staticModules) EXPECT_EQ(result, -1) << "registration reports -1, as it always has";
  EXPECT_EQ(ZYNSysLifeCycleGlobalFactory(nullptr, ChangeState<26>, nullptr), -1);
  ChildResult child = QRTSysRunChild("ZYNSysLifeCycleChild.DispatchesTheProcessModules", {});
  ASSERT_EQ(child.status, 0) << child.err;
  EXPECT_NE(child.out.find("early=-1\n"), std::string::npos) << "no library before initialisation\n" << child.out;
  EXPECT_NE(child.out.find("load=0 known=0 unload=0 handle=0"), std::string::npos) << child.out;
  EXPECT_NE(child.out.find("second=-1"), std::string::npos) << child.out;
  EXPECT_NE(child.out.find("calls=init23 init22 init21 init25 state23:6 state22:6 state21:6 state21:0 "
                           "state22:0 state23:0 \n"),
            std::string::npos)
      << child.out;
}

TEST(ZYNSysLifeCycleTest, LoaderUsesResidentLibrariesAndRefusesMissingOnes) {
  void* handle = nullptr;
  EXPECT_EQ(ZYNSysLifeCycleDynamicLoad("zyn_no_such_module", &handle), -1);
  void* own = dlopen("libpcprofile.so", RTLD_NOW);
  ASSERT_NE(own, nullptr);
  // Already in the process: the resident road, without a record of its own.
  ASSERT_EQ(ZYNSysLifeCycleDynamicLoad("pcprofile", &handle), 0);
  EXPECT_EQ(handle, own);
  EXPECT_NE(ZYNSysLifeCycleDynamicGetFunction(handle, "__cyg_profile_func_enter"), nullptr);
  EXPECT_EQ(ZYNSysLifeCycleDynamicGetFunction(nullptr, "__cyg_profile_func_enter"), nullptr);
  EXPECT_EQ(ZYNSysLifeCycleDynamicGetFunction(handle, nullptr), nullptr);
  void* context = &context;
  EXPECT_EQ(ZYNSysLifeCycleDispatchDynamicPrepareUnloadContext(&context, handle), -1);
  EXPECT_EQ(ZYNSysLifeCycleDynamicUnload(&handle), 0);
  EXPECT_EQ(handle, own) << "a library the manager doesn't know stays open";
  dlclose(own);
}
