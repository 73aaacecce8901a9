#pragma once

#include <cstdint>
#include <initializer_list>

#include "decisions.h"
#include "random_texts.h"

namespace qvfuzz {

/// One call of a function that has to do with no handle, chosen by the decisions, and its checks.
void MakePlainCall(Decisions& decisions, RandomTexts& texts);

/// Takes back what such calls have set.
void EndPlainCalls();

/// The result is one of those that the header states for the function.
void CheckResult(uint32_t result, std::initializer_list<uint32_t> stated);

}  // namespace qvfuzz
