#include "quorvio/quorvio.h"
