// Tasks that are started, waited for and destroyed at once, again and again: nobody touches a task that is gone, and
// nothing is left over. TOVAN_TASK_CYCLES sets another number of cycles.
#include <tovan/task.h>
#include <tovan/task2.h>

#include "tests/launch/task_support.h"

#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

namespace {

using test::TextList;
using tovan::CTask;
using tovan::CTask2;

int cycles(int usual) {
  const char* const wanted = std::getenv("TOVAN_TASK_CYCLES");
  return wanted != nullptr ? std::atoi(wanted) : usual;
}

class TaskStressTest : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(test::hasNoChildren());
    EXPECT_TRUE(test::comesTrue([this] { return test::countOfOwn("task") == threads_; }))
        << test::countOfOwn("task") << " threads, " << threads_ << " before";
    EXPECT_EQ(test::countOfOwn("fd"), descriptors_);
  }

 private:
  // Whoever runs the first thread of the process may bring one of its own.
  int threads_ = [] {
    std::thread([] {}).join();
    return test::countOfOwn("task");
  }();
  int descriptors_ = test::countOfOwn("fd");
};

// A subclass that uses itself after the base's hook, as subclasses do.
class CountingTask : public CTask {
 public:
  CountingTask() : CTask("/bin/true", nullptr, nullptr, nullptr), text_(std::make_unique<std::string>("ended")) {}

 protected:
  void on_exit(int code) override {
    CTask::on_exit(code);
    *text_ += " with " + std::to_string(code);
  }

 private:
  std::unique_ptr<std::string> text_;
};

TEST_F(TaskStressTest, AWaiterDestroysItsTask) {
  const int count = cycles(6000);
  for (int cycle = 0; cycle < count; ++cycle) {
    auto task = std::make_unique<CountingTask>();
    ASSERT_EQ(task->launch(), 0U) << "in cycle " << cycle;
    switch (cycle % 3) {
      case 0:
        ASSERT_EQ(task->waitForTask(), 0) << "in cycle " << cycle;
        break;
      case 1:
        ASSERT_TRUE(task->waitForTaskWithTimeout(300)) << "in cycle " << cycle;
        break;
      default:
        while (task->isRunning()) ::sched_yield();
    }
    ASSERT_FALSE(task->isRunning()) << "in cycle " << cycle;
    task.reset();
  }
}

TEST_F(TaskStressTest, TheDestructorOfATaskWithATerminalWaits) {
  const int count = cycles(4000);
  for (int cycle = 0; cycle < count; ++cycle) {
    CTask2 task("/bin/echo", TextList{"text"});
    ASSERT_EQ(task.launch(), 0U) << "in cycle " << cycle;
    if (cycle % 2 == 0) {
      ASSERT_EQ(task.getTaskOutput()->str(), "text\n") << "in cycle " << cycle;
    }
  }
}

TEST_F(TaskStressTest, ManyTasksRunAtOnce) {
  for (int round = 0; round < 10; ++round) {
    std::vector<std::unique_ptr<CTask>> tasks;
    for (int i = 0; i < 50; ++i) {
      tasks.push_back(std::make_unique<CTask>("/bin/sleep", TextList{"60"}, nullptr, nullptr));
      ASSERT_EQ(tasks.back()->launch(), 0U);
    }
    for (const auto& task : tasks) task->terminate();
    for (const auto& task : tasks) ASSERT_EQ(task->waitForTask(), SIGTERM);
  }
}

TEST_F(TaskStressTest, ThreadsLaunchSideBySide) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int cycle = 0; cycle < 300; ++cycle) {
        const std::string text = std::to_string(i) + " " + std::to_string(cycle);
        CTask2 task("/bin/echo", TextList{text});
        ASSERT_EQ(task.launch(), 0U);
        ASSERT_EQ(task.getTaskOutput()->str(), text + "\n");
        ASSERT_EQ(task.waitForTask(), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
