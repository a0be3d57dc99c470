// What nearly every test includes: GoogleTest, and the standard library's everyday headers.
#ifndef TESTS_SUPPORT_TESTING_H_
#define TESTS_SUPPORT_TESTING_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#endif  // TESTS_SUPPORT_TESTING_H_
