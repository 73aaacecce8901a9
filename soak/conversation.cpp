#include "conversation.h"

#include <array>
#include <utility>

#include "quorvio/quorvio.h"

namespace qvsoak {
namespace {

using namespace std::chrono_literals;

constexpr auto kReopening = 20s;     ///< until a chip that was closed or plugged in again must open
constexpr auto kLastCallback = 30s;  ///< after a close without wait
constexpr uint64_t kOnTheirWay = 65536;
constexpr int kTriesWhileAway = 2;
const std::string kWasAway = "was away";  // when it was opened

enum class Ending { Clean, CleanWithoutWait, Abrupt, AbruptWithoutWait, InCallback };

Ending DrawEnding(Random& random) {
  constexpr std::array kEndings{
      Ending::Clean,  Ending::Clean,  Ending::CleanWithoutWait,  Ending::Clean,
      Ending::Abrupt, Ending::Abrupt, Ending::AbruptWithoutWait, Ending::InCallback};
  return kEndings.at(Draw<std::size_t>(random, 0, kEndings.size() - 1));
}

/// Mostly small messages, now and then one that fills every buffer on the way.
std::size_t DrawSize(Random& random) {
  const auto most = std::size_t{1} << Draw(random, 3U, 13U);
  return Draw(random, 0, 99) == 0 ? Draw<std::size_t>(random, 1, 200'000)
                                  : Draw<std::size_t>(random, 1, most);
}

}  // namespace

Conversation::Conversation(Kind kind, std::size_t number, Workshop& workshop, Ledger& ledger,
                           const Pace& pace)
    : kind_(kind),
      name_(NameOf(kind) + " channel " + std::to_string(number)),
      ledger_(ledger),
      pace_(pace),
      livesLong_(number % 8 == 0),
      seed_(uint64_t{number} << 32U),
      triesSince_(Clock::now()),
      peer_(MakePeer(kind, workshop, chipName(number))) {}

void Conversation::run(Worker& worker) {
  while (worker.again()) {
    if (!open(worker)) continue;
    converse(worker);
    close(worker);
  }
}

bool Conversation::open(Worker& worker) {
  dialogue_ = std::make_unique<Dialogue>(ledger_, name_, ++seed_);
  if (isAway_) dialogue_->expectLoss(kWasAway);
  worker.doing("opens");
  const auto result = dialogue_->open(*peer_);
  if (result != QV_IO_OK) {
    judgeRefusal(worker, result);
    return false;
  }
  ledger_.add(NameOf(kind_) + ": opens");
  const std::lock_guard lock(mutex_);
  faultTarget_ = dialogue_.get();
  return true;
}

void Conversation::judgeRefusal(Worker& worker, uint32_t result) {
  if (result == QV_IO_ERROR_NO_FREE_HANDLE) {
    ledger_.add("opens without a free handle");
  } else if (isAway_) {
    ledger_.add(NameOf(kind_) + ": opens refused, peer away");
    if (++refusals_ >= kTriesWhileAway) awaitPeer(worker);
  } else if (kind_ == Kind::Usb && Clock::now() - triesSince_ < kReopening) {
    ledger_.add(NameOf(kind_) + ": opens repeated, chip not there yet");
  } else {
    ledger_.violation(name_ + " cannot be opened: " + std::to_string(result));
  }
  worker.pause(5ms, 20ms);
}

void Conversation::awaitPeer(Worker& worker) {
  worker.pause(20ms, 200ms);
  refusals_ = 0;
  triesSince_ = Clock::now();
  const std::lock_guard lock(mutex_);
  peer_->comeBack();
  isAway_ = false;
}

void Conversation::converse(Worker& worker) {
  auto& random = worker.random();
  const auto life = livesLong_ ? Draw(random, 5000, 60000) : Draw(random, 50, 4000);
  const auto until = Clock::now() + std::chrono::milliseconds(life);
  while (worker.again() && Clock::now() < until) {
    worker.doing("sends");
    if (!dialogue_->send(DrawSize(random))) return;
    worker.doing("waits for the echo");
    if (!dialogue_->awaitEcho(kOnTheirWay)) return;
    worker.pause(std::chrono::microseconds(Draw<int64_t>(random, 0, 2 * pace_.rest().count())));
  }
}

void Conversation::close(Worker& worker) {
  const auto ending = DrawEnding(worker.random());
  worker.doing("ends the conversation");
  const bool isClean = ending == Ending::Clean || ending == Ending::CleanWithoutWait;
  if (isClean && !dialogue_->hasCause()) std::ignore = dialogue_->awaitEcho(0);
  if (ending == Ending::InCallback) dialogue_->closeFromCallback(DrawSize(worker.random()));
  {
    const std::lock_guard lock(mutex_);
    faultTarget_ = nullptr;
  }
  const auto cause = dialogue_->result().cause;
  // A connection to a port that nobody listens at may by chance get that very port and meet itself.
  const bool metItself = cause == kWasAway && dialogue_->isEstablished();
  if (!cause.empty() && !metItself) dialogue_->awaitNotice();
  worker.doing("closes");
  const bool wait = ending == Ending::Clean || ending == Ending::Abrupt;
  dialogue_->close(wait);
  triesSince_ = Clock::now();
  ledger_.add(NameOf(kind_) + (ending == Ending::InCallback ? ": closes in a callback"
                               : wait                       ? ": closes with wait"
                                                            : ": closes without wait"));
  if (kind_ == Kind::Serial && !isAway_ && !(isClean && cause.empty())) renewPeer();
  retire(std::move(dialogue_));
  if (cause == kWasAway) awaitPeer(worker);
}

/// A terminal may still have bytes on their way, which the next dialogue would get.
void Conversation::renewPeer() {
  dialogue_->expectLoss("is replaced");  // of the handle that was closed without wait
  const std::lock_guard lock(mutex_);
  peer_->suffer(Fault::Vanishes);
  peer_->comeBack();
}

void Conversation::retire(std::unique_ptr<Dialogue> dialogue) {
  const auto result = dialogue->result();
  ledger_.add(NameOf(kind_) + ": bytes sent", result.sent);
  ledger_.add(NameOf(kind_) + ": bytes received", result.received);
  if (result.notices > 0)
    ledger_.add(NameOf(kind_) + ": notices explained, peer " + result.cause, result.notices);
  const auto now = Clock::now();
  retired_.push_back({now, std::move(dialogue)});
  while (now - retired_.front().since > kLastCallback) retired_.pop_front();
}

void Conversation::makeFault(Random& random) {
  const std::lock_guard lock(mutex_);
  if (faultTarget_ == nullptr || !faultTarget_->isEstablished() || faultTarget_->hasCause()) return;
  const auto faults = FaultsOf(kind_);
  const auto fault = faults[Draw<std::size_t>(random, 0, faults.size() - 1)];
  faultTarget_->expectLoss(NameOf(fault));
  peer_->suffer(fault);
  isAway_ = fault == Fault::Vanishes;
  ledger_.add(NameOf(kind_) + ": faults, peer " + NameOf(fault));
}

void Conversation::settle() {
  if (std::exchange(isAway_, false)) peer_->comeBack();
}

void Conversation::stall(bool stalled) {
  const std::lock_guard lock(mutex_);
  if (stalled && isAway_) return;
  peer_->stall(stalled);
  if (stalled) ledger_.add(NameOf(kind_) + ": faults, peer stalls for a while");
}

}  // namespace qvsoak
