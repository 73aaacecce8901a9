#include "discovery_measures.h"

int main() {
  qvbench::MeasureSearches();
  qvbench::MeasureDatagrams();
  qvbench::MeasureFlood();
}
