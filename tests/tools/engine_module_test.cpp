#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Common/level.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

/** The engine as a library that was loaded at run time, apart from the one linked into the tests.
 */
class EngineModule : public testing::Test {
  protected:
    template <class Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(module_.get(), name));
    }

    const std::unique_ptr<void, int (*)(void*)> module_{
        dlopen(ENGINE_MODULE, RTLD_NOW | RTLD_LOCAL),
        [](void* module) { return module == nullptr ? 0 : dlclose(module); }};
};

TEST_F(EngineModule, LoadsWithoutHooksAndLevelsAFile) {
    ASSERT_TRUE(module_) << dlerror();
    const auto new_run = find<decltype(levelRunNew)>("levelRunNew");
    const auto free_run = find<decltype(levelRunFree)>("levelRunFree");
    const auto set_folder =
        find<decltype(levelRunSetTemporaryDirectory)>("levelRunSetTemporaryDirectory");
    const auto level_file = find<decltype(levelRunFile)>("levelRunFile");
    const auto outcome_of = find<decltype(levelRunOutcome)>("levelRunOutcome");
    ASSERT_TRUE(new_run && free_run && set_folder && level_file && outcome_of);
    ASSERT_NE(&levelRunNew, new_run);

    const TempDir temporary;
    const TempDir dir;
    write_sound(dir / "in.wav", signals::speech(3.0, 16000), kWav16);
    const std::unique_ptr<LevelRun, decltype(levelRunFree)*> run(new_run(), free_run);
    EXPECT_EQ(1, level_file(run.get(), (dir / "in.wav").c_str(), (dir / "out.wav").c_str()))
        << "no temporary folder";
    ASSERT_EQ(0, set_folder(run.get(), (temporary.path() + "/").c_str()));
    EXPECT_EQ(0, level_file(run.get(), (dir / "in.wav").c_str(), (dir / "out.wav").c_str()))
        << outcome_of(run.get())->cause;
    EXPECT_EQ(kLevelLeveled, outcome_of(run.get())->kind);

    const std::unique_ptr<LevelRun, decltype(levelRunFree)*> linked(levelRunNew(), levelRunFree);
    levelRunSetTemporaryDirectory(linked.get(), (temporary.path() + "/").c_str());
    EXPECT_EQ(0,
              levelRunFile(linked.get(), (dir / "in.wav").c_str(), (dir / "linked.wav").c_str()));
    EXPECT_EQ(read_text(dir / "linked.wav"), read_text(dir / "out.wav"));
}

}  // namespace
