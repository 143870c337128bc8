// What nearly every test includes: the test framework, the standard library, and the helpers of this folder
// that need no path of the checkout (images.h, jpeg.h, process.h and warp.h do, and are included where they
// are used).
#pragma once

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <numbers>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/chain.h"
#include "support/frames16.h"
#include "support/records.h"
#include "support/targets.h"
#include "support/temp_dir.h"

namespace scansteps {

using namespace test;
using namespace std::string_literals;
using testing::ElementsAre, testing::ElementsAreArray, testing::HasSubstr, testing::SizeIs,
    testing::StartsWith;

}  // namespace scansteps
