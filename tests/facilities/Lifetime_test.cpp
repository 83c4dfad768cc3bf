#include "Lifetime.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <gmock/gmock.h>

#include "CommandLineArguments.h"
#include "KrfExport.h"

using nLifetime::MainScope;
using nLifetime::StaticObject;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What happened: "+name" for a construction, "-name" for a destruction.
std::vector<std::string> events;

std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

// Further acts of an object, by its letter; emptied by each test that sets them.
std::map<char, std::function<void()>> onConstruct;
std::map<char, std::function<void()>> onDestroy;

void act(const std::map<char, std::function<void()>>& acts, char name) {
    if (const auto found = acts.find(name); found != acts.end()) found->second();
}

template <char name>
struct Object {
    Object() {
        events.push_back(std::string("+") + name);
        act(onConstruct, name);
    }
    ~Object() {
        events.push_back(std::string("-") + name);
        act(onDestroy, name);
    }
};

struct LifetimeTest : testing::Test {
    void TearDown() override {
        onConstruct.clear();
        onDestroy.clear();
        events.clear();
    }
};

using MainScopeTest = LifetimeTest;
using StaticObjectTest = LifetimeTest;

void* loadPlugin() {
    void* const plugin = dlopen(LIFETIME_PLUGIN, RTLD_NOW);
    if (plugin == nullptr) throw std::runtime_error(dlerror());
    return plugin;
}

bool pluginIsLoaded() {
    void* const plugin = dlopen(LIFETIME_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
    if (plugin == nullptr) return false;
    dlclose(plugin);
    return true;
}

}  // namespace

extern "C" KRF_EXPORT void lifetimeEvent(const char* what) { events.push_back(what); }

TEST_F(StaticObjectTest, NothingRunsWithoutScope) {
    { const StaticObject<Object<'a'>> a; }
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(MainScopeTest, ConstructsInOrderAndDestroysInReverse) {
    const StaticObject<Object<'a'>> a;
    const StaticObject<Object<'b'>> b;
    const StaticObject<Object<'c'>> c;
    {
        const MainScope scope(0, nullptr);
        EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b", "+c"));
    }
    EXPECT_THAT(takeEvents(), ElementsAre("-c", "-b", "-a"));
}

TEST_F(MainScopeTest, MayOpenAgain) {
    const StaticObject<Object<'a'>> a;
    for (int i = 0; i < 2; ++i) {
        { const MainScope scope(0, nullptr); }
        EXPECT_THAT(takeEvents(), ElementsAre("+a", "-a"));
    }
}

TEST_F(MainScopeTest, SecondWhileOpenDoesNothing) {
    const StaticObject<Object<'a'>> a;
    const char* const outerArguments[] = {"/bin/outer", nullptr};
    const char* const innerArguments[] = {"/bin/inner", nullptr};
    const MainScope outer(1, outerArguments);
    takeEvents();
    { const MainScope inner(1, innerArguments); }
    EXPECT_THAT(takeEvents(), IsEmpty());
    EXPECT_EQ("/bin/outer", nCommandLineArguments::gGet(0));
}

TEST_F(MainScopeTest, RecordsArgumentsBeforeConstructing) {
    std::string seen;
    onConstruct['a'] = [&] { seen = nCommandLineArguments::gGet(1); };
    const StaticObject<Object<'a'>> a;
    const char* const arguments[] = {"/bin/program", "argument", nullptr};
    const MainScope scope(2, arguments);
    EXPECT_EQ("argument", seen);
}

TEST_F(MainScopeTest, ConstructorsExceptionUndoesAndPasses) {
    const StaticObject<Object<'a'>> a;
    const StaticObject<Object<'b'>> b;
    const StaticObject<Object<'c'>> c;
    onConstruct['b'] = [] { throw std::runtime_error("b"); };
    EXPECT_THROW(MainScope(0, nullptr), std::runtime_error);
    EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b", "-a"));

    onConstruct.erase('b');
    { const MainScope scope(0, nullptr); }
    EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b", "+c", "-c", "-b", "-a"));
}

TEST_F(StaticObjectTest, IsConstructedAtOnceWhileOpen) {
    std::optional<StaticObject<Object<'b'>>> late;
    const StaticObject<Object<'a'>> a;
    {
        const MainScope scope(0, nullptr);
        late.emplace();
        EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b"));
    }
    EXPECT_THAT(takeEvents(), ElementsAre("-b", "-a"));
}

TEST_F(StaticObjectTest, IsDestroyedWithItsRegistration) {
    std::optional<StaticObject<Object<'a'>>> early;
    early.emplace();
    const StaticObject<Object<'b'>> b;
    {
        const MainScope scope(0, nullptr);
        takeEvents();
        early.reset();
        EXPECT_THAT(takeEvents(), ElementsAre("-a"));
    }
    EXPECT_THAT(takeEvents(), ElementsAre("-b"));
}

// The registration whose constructor threw stayed behind as a dangling pointer, which the end of the scope followed.
TEST_F(StaticObjectTest, ExceptionWhileOpenRegistersNothing) {
    onConstruct['a'] = [] { throw std::runtime_error("a"); };
    {
        const MainScope scope(0, nullptr);
        EXPECT_THROW(StaticObject<Object<'a'>>{}, std::runtime_error);
        EXPECT_THAT(takeEvents(), ElementsAre("+a"));
    }
    const MainScope next(0, nullptr);
    EXPECT_THAT(takeEvents(), IsEmpty());
}

// The end of the scope walked past the end of the list after an object had taken others with it.
TEST_F(StaticObjectTest, DestructorMayUnregisterOthers) {
    std::optional<StaticObject<Object<'a'>>> a;
    std::optional<StaticObject<Object<'b'>>> b;
    a.emplace();
    b.emplace();
    const StaticObject<Object<'c'>> c;
    onDestroy['c'] = [&] {
        a.reset();
        b.reset();
    };
    { const MainScope scope(0, nullptr); }
    EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b", "+c", "-c", "-a", "-b"));
}

TEST_F(StaticObjectTest, ConstructorMayRegisterOthers) {
    std::optional<StaticObject<Object<'b'>>> b;
    onConstruct['a'] = [&] { b.emplace(); };
    const StaticObject<Object<'a'>> a;
    const StaticObject<Object<'c'>> c;
    { const MainScope scope(0, nullptr); }
    EXPECT_THAT(takeEvents(), ElementsAre("+a", "+b", "+c", "-b", "-c", "-a"));
}

TEST_F(StaticObjectTest, ThreadsMayRegisterTogether) {
    const MainScope scope(0, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 100; ++k) const StaticObject<Object<'a'>> a;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(800U, takeEvents().size());
}

TEST_F(MainScopeTest, LibraryLoadedWhileOpenIsConstructedAtOnce) {
    const StaticObject<Object<'a'>> a;
    {
        const MainScope scope(0, nullptr);
        void* const plugin = loadPlugin();
        EXPECT_THAT(takeEvents(), ElementsAre("+a", "+plugin1", "+plugin2"));
        dlclose(plugin);
        ASSERT_FALSE(pluginIsLoaded());
        EXPECT_THAT(takeEvents(), ElementsAre("-plugin2", "-plugin1"));
    }
    EXPECT_THAT(takeEvents(), ElementsAre("-a"));
}

TEST_F(MainScopeTest, LibraryLoadedBeforeIsConstructedWithTheScope) {
    void* const plugin = loadPlugin();
    EXPECT_THAT(takeEvents(), IsEmpty());
    { const MainScope scope(0, nullptr); }
    EXPECT_THAT(takeEvents(), ElementsAre("+plugin1", "+plugin2", "-plugin2", "-plugin1"));
    dlclose(plugin);
    ASSERT_FALSE(pluginIsLoaded());
    { const MainScope scope(0, nullptr); }
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(MainScopeTest, ObjectsMayLoadAndUnloadLibraries) {
    void* plugin = nullptr;
    onConstruct['a'] = [&] { plugin = loadPlugin(); };
    onDestroy['a'] = [&] { dlclose(plugin); };
    const StaticObject<Object<'a'>> a;
    { const MainScope scope(0, nullptr); }
    ASSERT_FALSE(pluginIsLoaded());
    EXPECT_THAT(takeEvents(), ElementsAre("+a", "+plugin1", "+plugin2", "-plugin2", "-plugin1", "-a"));
}

namespace {

struct TellsStandardError {
    ~TellsStandardError() { std::fputs("destroyed at exit\n", stderr); }
};

void exitInsideScope() {
    static const StaticObject<TellsStandardError> object;
    const MainScope scope(0, nullptr);
    std::exit(3);
}

}  // namespace

TEST(MainScopeDeathTest, ExitInsideTheScopeStillDestroys) {
    EXPECT_EXIT(exitInsideScope(), testing::ExitedWithCode(3), "destroyed at exit\n");
}
