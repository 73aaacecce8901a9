#include "quorvio/quorvio.hpp"
