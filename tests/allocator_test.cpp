// The aligned allocator observed from outside: this file defines the
// computational library's mkl_serv_malloc and mkl_serv_free, so the
// library's calls land here first (callers other than the library go
// straight on). A test can make the next call refuse, or answer it with a
// block of its own so that odd alignments never reach MKL. The library's
// free may be a tail call, whose return address is the test's own: frees are
// attributed to it while a test is inside VORN_MKL_AlignedFree.
#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "support/observe.h"
#include "vorn/vorn.hpp"

namespace {

struct MallocCall {
  std::size_t bytes;
  int alignment;
};

enum class Answer { Forward, Refuse, OwnBlock };

struct AllocatorLog {
  std::mutex lock;
  std::vector<MallocCall> mallocs;
  std::vector<void*> frees;
  Answer answer = Answer::Forward;
  std::set<void*> own_blocks;  // answered here; never handed to MKL
};

AllocatorLog& log() {
  static AllocatorLog l;
  return l;
}

alignas(64) unsigned char own_block[256];
thread_local bool inside_library_free = false;

void free_through_library(void* p) {
  inside_library_free = true;
  VORN_MKL_AlignedFree(p);
  inside_library_free = false;
}

}  // namespace

extern "C" {

void* mkl_serv_malloc(std::size_t bytes, int alignment) {
  static auto real = reinterpret_cast<void* (*)(std::size_t, int)>(observe::next("mkl_serv_malloc"));
  if (!observe::in_layer(__builtin_return_address(0))) return real(bytes, alignment);
  AllocatorLog& l = log();
  std::lock_guard g(l.lock);
  l.mallocs.push_back({bytes, alignment});
  switch (l.answer) {
    case Answer::Refuse:
      return nullptr;
    case Answer::OwnBlock:
      l.own_blocks.insert(own_block);
      return own_block;
    case Answer::Forward:
      break;
  }
  return real(bytes, alignment);
}

void mkl_serv_free(void* p) {
  static auto real = reinterpret_cast<void (*)(void*)>(observe::next("mkl_serv_free"));
  if (inside_library_free || observe::in_layer(__builtin_return_address(0))) {
    AllocatorLog& l = log();
    std::lock_guard g(l.lock);
    l.frees.push_back(p);
    if (l.own_blocks.count(p) != 0) return;
  }
  real(p);
}

}  // extern "C"

namespace {

class AlignedAlloc : public ::testing::Test {
 protected:
  void SetUp() override { reset(Answer::Forward); }
  void TearDown() override { reset(Answer::Forward); }
  static void reset(Answer a) {
    std::lock_guard g(log().lock);
    log().mallocs.clear();
    log().frees.clear();
    log().answer = a;
  }
  static std::vector<MallocCall> mallocs() { return log().mallocs; }
  static std::vector<void*> frees() { return log().frees; }
};

TEST_F(AlignedAlloc, SizeZeroIsNullWithoutAskingTheAllocator) {
  for (int alignment : {64, 0, -1, 3}) {
    EXPECT_EQ(VORN_MKL_AlignedAlloc(alignment, 0), nullptr) << alignment;
  }
  EXPECT_TRUE(mallocs().empty());
  reset(Answer::Refuse);
  EXPECT_NO_THROW(EXPECT_EQ(VORN_MKL_AlignedAlloc(64, 0), nullptr));
  EXPECT_TRUE(mallocs().empty());
}

TEST_F(AlignedAlloc, BlocksAreAlignedUsableAndReleasedThroughTheLibrary) {
  struct Case {
    int alignment;
    unsigned long long size;
  };
  for (const Case c : {Case{64, 1000}, Case{4096, 1}, Case{16, 3 * 1024 * 1024}}) {
    reset(Answer::Forward);
    void* p = VORN_MKL_AlignedAlloc(c.alignment, c.size);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % static_cast<unsigned>(c.alignment), 0u) << c.alignment;
    static_cast<unsigned char*>(p)[0] = 1;
    static_cast<unsigned char*>(p)[c.size - 1] = 2;
    free_through_library(p);
    // Size first, alignment second: the reverse of the library's own order.
    ASSERT_EQ(mallocs().size(), 1u);
    EXPECT_EQ(mallocs()[0].bytes, c.size);
    EXPECT_EQ(mallocs()[0].alignment, c.alignment);
    EXPECT_EQ(frees(), std::vector<void*>{p});
  }
  // A null block goes to the library too: the free adds no test of its own.
  reset(Answer::Forward);
  free_through_library(nullptr);
  EXPECT_EQ(frees(), std::vector<void*>{nullptr});
}

TEST_F(AlignedAlloc, OddAlignmentsAreHandedOnUntouched) {
  reset(Answer::OwnBlock);
  const int alignments[] = {0, -1, -64, 3, 24, 1000};
  for (int alignment : alignments) EXPECT_EQ(VORN_MKL_AlignedAlloc(alignment, 100), own_block);
  ASSERT_EQ(mallocs().size(), std::size(alignments));
  for (std::size_t i = 0; i < std::size(alignments); ++i) {
    EXPECT_EQ(mallocs()[i].alignment, alignments[i]);
    EXPECT_EQ(mallocs()[i].bytes, 100u);
  }
}

// A refusal throws OutOfAlignedMemory with its three texts, caught as each
// of its bases (through a sliced copy too). The hierarchy is not
// polymorphic, so none of it can be a std::exception; anything else thrown
// leaves the test as a failure.
TEST_F(AlignedAlloc, RefusalThrowsOutOfAlignedMemoryWithItsTexts) {
  static_assert(!std::is_polymorphic_v<VORN::Exception> && !std::is_polymorphic_v<ARDU::OutOfAlignedMemory>);
  static_assert(std::is_base_of_v<VORN::OutOfMemoryError, ARDU::OutOfAlignedMemory> &&
                std::is_base_of_v<VORN::SystemError, VORN::OutOfMemoryError> &&
                std::is_base_of_v<VORN::Exception, VORN::SystemError>);
  reset(Answer::Refuse);
  auto expect_texts = [](const VORN::SystemError& e) {
    EXPECT_EQ(e.message, "MKL_AlignedAlloc!");
    EXPECT_EQ(e.typeName, "ARDU::OutOfAlignedMemory");
    EXPECT_EQ(e.detail, "");
    // The fields keep their published order.
    EXPECT_LT(static_cast<const void*>(&e.message), static_cast<const void*>(&e.typeName));
    EXPECT_LT(static_cast<const void*>(&e.typeName), static_cast<const void*>(&e.detail));
  };
  int caught = 0;
  try {
    VORN_MKL_AlignedAlloc(128, 12345);
  } catch (const ARDU::OutOfAlignedMemory& e) {
    expect_texts(e);
    ++caught;
  }
  try {
    VORN_MKL_AlignedAlloc(64, 1);
  } catch (VORN::SystemError copy) {
    expect_texts(copy);
    ++caught;
  }
  EXPECT_EQ(caught, 2);
  ASSERT_EQ(mallocs().size(), 2u);
  EXPECT_EQ(mallocs()[0].bytes, 12345u);
  EXPECT_EQ(mallocs()[0].alignment, 128);
  EXPECT_TRUE(frees().empty());
}

}  // namespace
