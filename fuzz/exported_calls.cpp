// The exported functions: calls in any order with any arguments against simulated devices, some from within
// callbacks, compared with a model of the handle table.

#include <cstdio>

#include "call_sequence.h"
#include "decisions.h"
#include "links.h"
#include "support/private_network.h"

namespace {

/// To be called before any thread is started: without privilege it is too late then.
bool NetworkIsPrivate() {
  const qvtest::PrivateNetwork network;
  if (!network.entered()) std::fputs("fuzz: without discovery: no private network to be had\n", stderr);
  return network.entered();
}

qvfuzz::Links& TheLinks() {
  static auto& links =
      *new qvfuzz::Links(NetworkIsPrivate());  // never destroyed: its threads serve till the end
  return links;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  TheLinks();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qvfuzz::CallSequence(qvfuzz::Decisions({data, size}), TheLinks()).run();
  return 0;
}
