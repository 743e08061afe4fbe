// The module keelstone._native: the C interface as Python objects. What Python's users see is
// written in Python above it; here are ownership, errors and the interpreter's lock.
#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "keelstone/keelstone.h"

namespace py = pybind11;

namespace {

/// A call that failed, until it is a Python exception of the class of its status.
struct Failure {
  ks_status status;
  std::string what;
};

void Check(ks_status status) {
  if (status != KS_OK) throw Failure{status, ks_last_error()};
}

/// The interpreter's lock, given up while this lives. An interpreter that ends makes a thread
/// that wants the lock back exit, which no C++ frame survives: such threads stay where they
/// are instead. Ending says when.
class Unlocked {
 public:
  Unlocked() : state_(PyEval_SaveThread()) {}
  ~Unlocked() {
    ++returning;
    if (isEnding && std::this_thread::get_id() != endingThread) {
      --returning;
      while (true) ::pause();
    }
    PyEval_RestoreThread(state_);
    --returning;
  }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

  /// In a forked child, which has none of the threads that were on their way back.
  static void Forked() { returning = 0; }

  /// Before the interpreter ends, with its lock held: returns when no other thread can want it
  /// any more.
  static void Ending() {
    endingThread = std::this_thread::get_id();
    isEnding = true;
    PyThreadState* const state = PyEval_SaveThread();
    while (returning != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    PyEval_RestoreThread(state);
  }

 private:
  static inline std::atomic<bool> isEnding{false};
  static inline std::atomic<int> returning{0};
  static inline std::thread::id endingThread;  // written before isEnding

  PyThreadState* state_;
};

/// Makes a call without the interpreter's lock.
template <class Call>
void Released(Call call) {
  ks_status status = KS_OK;
  {
    const Unlocked unlocked;
    status = call();
    if (status == KS_OK) return;
  }
  Check(status);
}

/// The text for a call that reads it up to its end: one with a NUL inside would end there.
const char* Terminated(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw Failure{KS_ERROR_INPUT, "a text with a NUL inside names nothing"};
  }
  return text.c_str();
}

class Run {
 public:
  explicit Run(ks_run* handle) : handle_(handle) {}
  ~Run() { ks_run_close(handle_); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void AddJson(std::string_view json) {
    Released([&] { return ks_run_add_json(handle_, json.data(), json.size()); });
  }
  void Evaluate() {
    Released([&] { return ks_run_evaluate(handle_); });
  }
  void Explain() { Check(ks_run_explain(handle_)); }
  void Store() {
    Released([&] { return ks_run_store(handle_); });
  }
  void Discard() {
    Released([&] { return ks_run_discard(handle_); });
  }
  py::str Json() { return Text(&ks_run_json); }
  py::str Explanations() { return Text(&ks_run_explanations); }
  py::tuple Summary() {
    ks_summary summary = {};
    Released([&] { return ks_run_summary(handle_, &summary, sizeof summary); });
    return py::make_tuple(summary.variables, summary.blocked != 0, summary.engine_on != 0,
                          Rejected(summary.rejected), Refused(summary.rejected), summary.repeated);
  }

 private:
  py::str Text(ks_status (*call)(ks_run*, const char**, std::size_t*)) {
    const char* text = nullptr;
    std::size_t length = 0;
    Released([&] { return call(handle_, &text, &length); });
    return py::str(text, length);
  }
  py::list Rejected(std::uint64_t count) {
    py::list names;
    for (std::uint64_t index = 0; index < count; ++index) {
      const char* name = nullptr;
      Check(ks_run_rejected(handle_, index, &name));
      names.append(py::str(name));
    }
    return names;
  }

  /// [(device, source, interface, variable, reason)]
  py::list Refused(std::uint64_t count) {
    py::list values;
    for (std::uint64_t index = 0; index < count; ++index) {
      ks_refusal refusal = {};
      Check(ks_run_refusal(handle_, index, &refusal, sizeof refusal));
      values.append(py::make_tuple(refusal.device, refusal.source, refusal.interface_value,
                                   refusal.variable, refusal.reason));
    }
    return values;
  }

  ks_run* handle_;
};

class Domain {
 public:
  static std::unique_ptr<Domain> Open(const std::string& id, bool create,
                                      const std::optional<std::string>& settings) {
    ks_domain* handle = nullptr;
    const char* const idText = Terminated(id);
    const char* const settingsText = settings ? Terminated(*settings) : nullptr;
    Released([&] {
      return create ? ks_domain_create(idText, settingsText, &handle)
                    : ks_domain_open(idText, &handle);
    });
    return std::make_unique<Domain>(handle);
  }
  explicit Domain(ks_domain* handle) : handle_(handle) {}
  ~Domain() { ks_domain_close(handle_); }
  Domain(const Domain&) = delete;
  Domain& operator=(const Domain&) = delete;

  // The handle itself refuses every call once it is closed.
  void Close() { Check(ks_domain_close(handle_)); }
  void Enroll(bool on) { Check(ks_domain_enroll(handle_, on ? 1 : 0)); }
  void Configure(bool judgeRepeated, bool allowDuplicates, std::int64_t maxAhead) {
    ks_domain_config config = {};
    config.judge_repeated = judgeRepeated ? 1 : 0;
    config.allow_duplicates = allowDuplicates ? 1 : 0;
    config.max_ahead = maxAhead > 0 ? maxAhead : -1;
    Check(ks_domain_configure(handle_, &config, sizeof config));
  }
  void Flush() {
    Released([&] { return ks_domain_flush(handle_); });
  }
  void Reload() {
    Released([&] { return ks_domain_reload(handle_); });
  }
  void Merge(int database, const std::string& from) {
    Released([&] { return ks_domain_merge(handle_, database, Terminated(from)); });
  }
  void Clean(const std::vector<std::string>& keep) {
    std::vector<const char*> names;
    for (const std::string& name : keep) names.push_back(Terminated(name));
    Released([&] { return ks_domain_clean(handle_, names.data(), names.size()); });
  }
  void Define(const std::string& source, const std::string& name, int type) {
    const char* const sourceText = Terminated(source);
    const char* const nameText = Terminated(name);
    Released([&] { return ks_domain_define(handle_, sourceText, nameText, type, 0); });
  }
  std::unique_ptr<Run> Start(const std::string& device, const std::string& source,
                             const std::string& param, std::int64_t time, bool onDemand,
                             const std::string& nodeId) {
    ks_run_info info = {};
    info.device = Terminated(device);
    info.source = Terminated(source);
    info.param = Terminated(param);
    info.time = time;
    info.on_demand = onDemand ? 1 : 0;
    info.node_id = Terminated(nodeId);
    ks_run* handle = nullptr;
    Released([&] { return ks_run_start(handle_, &info, sizeof info, &handle); });
    return std::make_unique<Run>(handle);
  }

 private:
  ks_domain* handle_;
};

/// A Python callable that takes log lines from any thread. Never destroyed while the
/// library may call it: ks_set_logger waits for calls under way.
class Logger {
 public:
  /// None goes back to the file.
  static void Set(const py::object& callback) {
    static std::unique_ptr<py::object>& current = *new std::unique_ptr<py::object>();
    std::unique_ptr<py::object> next;
    if (!callback.is_none()) next = std::make_unique<py::object>(callback);
    py::object* const target = next.get();
    // Without the lock: a call that is under way needs it to come to its end.
    Released([&] { return ks_set_logger(target != nullptr ? &Logger::Take : nullptr, target); });
    current.swap(next);
  }

 private:
  static void Take(std::int32_t level, const char* text, void* user) {
    const py::gil_scoped_acquire lock;
    try {
      // A device's bytes may stand in a line: what is no UTF-8 is shown as such.
      py::object line = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
          text, static_cast<Py_ssize_t>(std::string_view(text).size()), "backslashreplace"));
      (*static_cast<py::object*>(user))(level, line);
    } catch (py::error_already_set& error) {
      error.discard_as_unraisable("keelstone's logger");
    }
  }
};

}  // namespace

PYBIND11_MODULE(_native, module) {
  static py::object& raise = *new py::object();
  module.def("_set_raiser", [](py::object raiser) { raise = std::move(raiser); });
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      std::rethrow_exception(std::move(thrown));
    } catch (const Failure& failure) {
      const py::object error = raise(failure.status, failure.what);
      PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    }
  });

  module.def("version", [] { return ks_version(); });
  module.def("_ending", [] {
    Logger::Set(py::none());
    Unlocked::Ending();
  });
  module.def("_forked", &Unlocked::Forked);
  module.def("set_root", [](const std::string& folder) { Check(ks_set_root(Terminated(folder))); });
  module.def("set_interval_time",
             [](std::int32_t seconds) { Check(ks_set_interval_time(seconds)); });
  module.def("set_memory",
             [](std::uint64_t bytes) { Released([&] { return ks_set_memory(bytes); }); });
  module.def("set_logger", &Logger::Set, py::arg("callback"));
  module.def("set_log_level", [](std::int32_t level) { Check(ks_set_log_level(level)); });
  module.def("flush", [] { Released([] { return ks_flush(); }); });
  module.def("failed_writes", [] { return ks_failed_writes(); });
  module.def("failed_reads", [] { return ks_failed_reads(); });

  py::class_<Run>(module, "Run")
      .def("add_json", &Run::AddJson)
      .def("evaluate", &Run::Evaluate)
      .def("store", &Run::Store)
      .def("discard", &Run::Discard)
      .def("json", &Run::Json)
      .def("explain", &Run::Explain)
      .def("explanations", &Run::Explanations)
      .def("summary", &Run::Summary);
  py::class_<Domain>(module, "Domain")
      .def_static("open", &Domain::Open, py::arg("id"), py::arg("create"),
                  py::arg("settings").none(true))
      .def("close", &Domain::Close)
      .def("enroll", &Domain::Enroll)
      .def("configure", &Domain::Configure)
      .def("define", &Domain::Define)
      .def("flush", &Domain::Flush)
      .def("reload", &Domain::Reload)
      .def("merge", &Domain::Merge)
      .def("clean", &Domain::Clean)
      .def("start", &Domain::Start);
}
