// A task run on a second thread while the calling thread does other work.
//
// Wait() joins the thread and rethrows, on the calling thread, whatever the
// task threw, so that an error reaches the caller as it would have had the
// task run there. Leaving the scope without Wait() (the calling thread's own
// work threw) requests a stop through the task's std::stop_token and joins:
// no thread outlives the object, and the task's error, if any, is dropped,
// as the caller's came first. Where no thread can be started, Wait() runs the
// task on the calling thread.
#pragma once

#include <exception>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>

template <typename Task>
class AsideTask {
 public:
  explicit AsideTask(Task task) : task_(std::move(task)) {
    try {
      thread_ = std::jthread([this](std::stop_token stop) { Run(stop); });
    } catch (const std::system_error&) {
      // No thread to be had: Wait() runs the task.
    }
  }
  AsideTask(const AsideTask&) = delete;
  AsideTask& operator=(const AsideTask&) = delete;

  // Once only.
  void Wait() {
    if (!thread_.joinable()) {
      task_(std::stop_token());
      return;
    }
    thread_.join();
    if (error_) std::rethrow_exception(error_);
  }

 private:
  void Run(std::stop_token stop) {
    try {
      task_(stop);
    } catch (...) {
      error_ = std::current_exception();  // read by Wait() after the join
    }
  }

  Task task_;
  std::exception_ptr error_;
  std::jthread thread_;  // last, so that it is joined before the rest goes
};
