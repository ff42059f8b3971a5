// A database's life, and the traffic between the engine's threads and that of JavaScript.
#include "database.h"

#include <utility>

#include "errors.h"
#include "result.h"
#include "statement.h"
#include "texts.h"

namespace velmora_node {
namespace {

class HandleScope {
 public:
  explicit HandleScope(napi_env env) : env_(env) { napi_open_handle_scope(env, &scope_); }
  ~HandleScope() { napi_close_handle_scope(env_, scope_); }
  HandleScope(const HandleScope&) = delete;
  HandleScope& operator=(const HandleScope&) = delete;

 private:
  napi_env env_;
  napi_handle_scope scope_ = nullptr;
};

bool hasPending(napi_env env) {
  bool isPending = false;
  napi_is_exception_pending(env, &isPending);
  return isPending;
}

}  // namespace

Database::Database(Addon& addon, const velmora_options& options, const ScriptCallbacks& callbacks)
    : addon_(addon.shared_from_this()),
      env_(addon.env),
      options_(options),
      callbacks_(callbacks),
      worker_([this](std::unique_ptr<Job> job) { perform(std::move(job)); }) {
  options_.size = sizeof options_;
  options_.context = this;
  if (callbacks_.log != nullptr) options_.log = log;
  if (callbacks_.clock != nullptr) options_.clock = clock;
  options_.progress = progress;
}

Database::~Database() = default;

void Database::begin() {
  auto* const owned = new std::shared_ptr<Database>(shared_from_this());
  const auto finalize = [](napi_env, void* data, void*) {
    delete static_cast<std::shared_ptr<Database>*>(data);
  };
  const auto answer = [](napi_env env, napi_value, void* context, void*) {
    if (env != nullptr) (*static_cast<std::shared_ptr<Database>*>(context))->deliver();
  };
  napi_value name = nullptr;
  require(env_, napi_create_string_utf8(env_, "velmora", NAPI_AUTO_LENGTH, &name));
  require(env_, napi_create_threadsafe_function(env_, nullptr, nullptr, name, 0, 1, owned, finalize,
                                                owned, answer, &bell_));
  require(env_, napi_unref_threadsafe_function(env_, bell_));
  addon_->databases.insert(this);
}

int Database::open(const std::string& path, velmora_error** error) {
  velmora_db* opened = nullptr;
  const int code = velmora_open(path.data(), path.size(), &options_, &opened, error);
  const std::lock_guard lock(engineMutex_);
  db_ = opened;
  return code;
}

void Database::hasOpened(bool isOpen) {
  isOpen_ = isOpen;
  if (!isOpen) end();
}

void Database::requireUsable() const {
  if (!isOpen_) refuse(VELMORA_MISUSE, "The database is closed");
  if (callsUnderWay_ > 0) refuse(VELMORA_MISUSE, "The database is called from its own callback");
}

void Database::requireFree() const {
  requireUsable();
  if (isReserved_) refuse(VELMORA_BUSY, "An asynchronous transaction has the database");
}

// ---- Asynchronous calls ----

napi_value Database::post(std::function<int(Job&)> work, std::function<void(const Job&)> conclude) {
  auto job = std::make_unique<Job>();
  job->work = std::move(work);
  job->conclude = std::move(conclude);
  {
    const UnderWay clockIsAsked(*this);
    job->second = second_;
  }
  napi_value promise = nullptr;
  require(env_, napi_create_promise(env_, &job->promise, &promise));
  // A promise that is waited for keeps the process alive.
  if (jobCount_++ == 0) napi_ref_threadsafe_function(env_, bell_);
  worker_.post(std::move(job));
  return promise;
}

void Database::perform(std::unique_ptr<Job> job) {
  isToStop_ = false;
  second_ = job->second;
  job->code = job->work(*job);
  {
    const std::lock_guard lock(mutex_);
    mail_.jobs.push_back(std::move(job));
  }
  ring();
}

void Database::ring() {
  hasMail_ = true;
  napi_call_threadsafe_function(bell_, nullptr, napi_tsfn_nonblocking);
}

void Database::deliver() noexcept {
  try {
    deliverMail();
  } catch (const Thrown&) {
    // The environment is ending, and takes no more.
  }
}

void Database::deliverMail() {
  const std::shared_ptr<Database> self = shared_from_this();  // which a job may end
  if (callsUnderWay_ > 0 || addon_->isEnding || hasPending(env_)) return;
  Mail mail;
  {
    const std::lock_guard lock(mutex_);
    mail = std::exchange(mail_, {});
    hasMail_ = false;
  }
  const HandleScope scope(env_);
  for (const LogLine& line : mail.lines) {
    callScript(callbacks_.log, {numberValue(env_, line.level), stringOf(env_, line.text)});
    handOverException();
  }
  if (mail.progress && !goesOn(*mail.progress)) isToStop_ = true;
  handOverException();
  for (const std::unique_ptr<Job>& job : mail.jobs) settle(*job);
}

void Database::settle(Job& job) {
  if (--jobCount_ == 0) napi_unref_threadsafe_function(env_, bell_);
  if (job.conclude) job.conclude(job);
  if (job.code != VELMORA_OK) {
    const EngineFailure failure{job.code, Error(std::exchange(job.error, nullptr)), {}};
    napi_reject_deferred(env_, job.promise, scriptError(env_, failure));
    return;
  }
  napi_value value = nullptr;
  napi_get_undefined(env_, &value);
  if (job.result != nullptr) value = giveOutResult(env_, std::exchange(job.result, nullptr));
  napi_resolve_deferred(env_, job.promise, value);
}

// ---- Callbacks ----

bool Database::mayCallScript() const {
  return std::this_thread::get_id() == addon_->thread && callsUnderWay_ > 0 && !addon_->isEnding &&
         !hasPending(env_);
}

napi_value Database::callScript(napi_ref function,
                                std::initializer_list<napi_value> arguments) const {
  napi_value callee = nullptr;
  napi_value receiver = nullptr;
  napi_value value = nullptr;
  napi_get_reference_value(env_, function, &callee);
  napi_get_undefined(env_, &receiver);
  napi_call_function(env_, receiver, callee, arguments.size(), arguments.begin(), &value);
  return value;
}

void Database::handOverException() const {
  napi_value exception = nullptr;
  if (!hasPending(env_)) return;
  napi_get_and_clear_last_exception(env_, &exception);
  napi_fatal_exception(env_, exception);
}

void Database::log(void* context, int level, const char* text, std::size_t length) {
  Database& self = *static_cast<Database*>(context);
  {
    const std::lock_guard lock(self.mutex_);
    self.mail_.lines.push_back({level, std::string(text, length)});
  }
  self.ring();
}

bool Database::goesOn(const Progress& progress) const noexcept {
  try {
    const napi_value answer =
        callScript(callbacks_.progress, {stringOf(env_, progress.what),
                                         numberValue(env_, static_cast<double>(progress.done)),
                                         numberValue(env_, static_cast<double>(progress.total))});
    napi_value no = nullptr;
    bool isNo = false;
    require(env_, napi_get_boolean(env_, false, &no));
    if (answer == nullptr) return false;
    require(env_, napi_strict_equals(env_, answer, no, &isNo));
    return !isNo;
  } catch (const Thrown&) {
    return false;
  }
}

// On the thread of JavaScript the program is asked at once. For the worker, which must not wait for
// that thread, it is told later, and what it answers counts the next time.
int Database::progress(void* context, const char* what, std::size_t length, std::uint64_t done,
                       std::uint64_t total) {
  Database& self = *static_cast<Database*>(context);
  if (self.isAbandoned_ && std::this_thread::get_id() != self.addon_->thread) return 1;
  if (self.callbacks_.progress == nullptr) return 0;
  Progress progress{std::string(what, length), done, total};
  if (self.mayCallScript()) {
    const HandleScope scope(self.env_);
    return self.goesOn(progress) ? 0 : 1;
  }
  if (std::this_thread::get_id() == self.addon_->thread) return hasPending(self.env_) ? 1 : 0;
  {
    const std::lock_guard lock(self.mutex_);
    self.mail_.progress = std::move(progress);
  }
  self.ring();
  return self.isToStop_ ? 1 : 0;
}

void Database::beginCall() {
  ++callsUnderWay_;
  if (callbacks_.clock == nullptr) return;
  try {
    second_ = scriptSecond();
  } catch (const Thrown&) {
    --callsUnderWay_;
    throw;
  }
}

std::int64_t Database::scriptSecond() const {
  const HandleScope scope(env_);
  const napi_value answer = callScript(callbacks_.clock, {});
  if (answer == nullptr) throw Thrown();
  double second = 0;
  if (napi_get_value_double(env_, answer, &second) != napi_ok) {
    throwTypeError(env_, "The clock gives no number");
  }
  return static_cast<std::int64_t>(second);
}

// The program cannot be asked here: what asks may be any thread, and hold the engine's locks.
std::int64_t Database::clock(void* context) { return static_cast<Database*>(context)->second_; }

// ---- The end ----

void Database::endCalls() {
  isOpen_ = false;
  while (!statements.empty()) (*statements.begin())->close();
}

int Database::closeEngine(velmora_error** error) {
  velmora_db* closed = nullptr;
  {
    const std::lock_guard lock(engineMutex_);
    closed = std::exchange(db_, nullptr);
  }
  return velmora_close(closed, error);
}

void Database::interrupt() {
  const std::lock_guard lock(engineMutex_);
  velmora_interrupt(db_);
}

void Database::end() {
  worker_.stop([this] { interrupt(); });
  if (addon_->databases.erase(this) == 0) return;
  if (addon_->isEnding) return;  // the environment ends all that is its own
  for (const napi_ref each : {callbacks_.log, callbacks_.progress, callbacks_.clock}) {
    if (each != nullptr) napi_delete_reference(env_, each);
  }
  napi_release_threadsafe_function(bell_, napi_tsfn_release);
}

void Database::abandon() noexcept {
  if (!addon_->databases.contains(this)) return;
  if (callsUnderWay_ > 0) {
    // The process ends within a callback: the engine is left as it is, and the log has everything.
    addon_->databases.erase(this);
    new std::shared_ptr<Database>(shared_from_this());
    return;
  }
  isAbandoned_ = true;
  worker_.stop([this] { interrupt(); });
  endCalls();
  closeEngine(nullptr);
  end();
}

}  // namespace velmora_node
