// The table of handles, the names of formats, and the buffers that own handles.
#include "scansteps/handles.h"

#include "scansteps/texture.h"
#include "support/test.h"

namespace scansteps {
namespace {

class Handles : public testing::Test
{
  protected:
    Handles()
    {
        fillFreeHandles(table_);
        installHandles(&table_);
    }
    ~Handles() override
    {
        for (SlotRecord* slot : table_.slots) delete slot;
        installHandles(nullptr);
    }
    HandleTable table_;
};

TEST_F(Handles, lastReleasedIsTheNextAllocated)
{
    for (int expected = 1; expected <= 9; ++expected) EXPECT_EQ(handles::allocate(), expected);
    handles::release(5);
    handles::release(9);
    EXPECT_EQ(handles::allocate(), 9);
    EXPECT_EQ(handles::allocate(), 5);
}

TEST_F(Handles, everyOperationChecksItsHandle)
{
    handles::release(handles::allocate());
    const auto check = [](auto operation) {
        for (const int handle : {0, -1, 2048, INT32_MAX, INT32_MIN})
            EXPECT_EQ(thrownText([&] { operation(handle); }), "Handle::Invalid handle!!!") << handle;
        for (const int handle : {1, 2047})
            EXPECT_EQ(thrownText([&] { operation(handle); }), "Handle::zero handle!!!");
    };
    check([](int handle) { handles::release(handle); });
    check([](int handle) { handles::record(handle); });
    check([](int handle) { handles::setTag(handle, 1); });
    check([](int handle) { handles::payload(handle); });
    check([](int handle) { handles::setPayload(handle, nullptr); });
    check([](int handle) { handles::swap(handle, 3); });
    const int good = handles::allocate();
    check([&](int handle) {
        if (handle != good)
            handles::swap(good, handle);
        else
            handles::record(2);
    });
}

TEST_F(Handles, allOfThemThenNone)
{
    for (int i = 1; i < kSlotCount; ++i) handles::allocate();
    EXPECT_EQ(thrownText([] { handles::allocate(); }), "Handle::no free handle");
    handles::release(2047);
    EXPECT_EQ(handles::allocate(), 2047);
}

TEST_F(Handles, swapAndSharedValues)
{
    int x = 0, y = 0;
    const int a = handles::allocate(), b = handles::allocate();
    handles::setPayload(a, &x);
    handles::setPayload(b, &y);
    handles::setTag(a, 7);
    handles::swap(a, b);
    EXPECT_EQ(handles::payload(a), &y);
    EXPECT_EQ(handles::record(b)->tag, 7U);
    handles::swap(a, a);
    EXPECT_EQ(handles::payload(a), &y);
    EXPECT_EQ(handles::mapGet(-3), 0U);
    EXPECT_EQ(table_.values.count(-3), 1U);
    handles::mapSet(5, -3);
    EXPECT_EQ(handles::mapGet(-3), 5U);
}

TEST_F(Handles, formatNamesAreSearchedInTableOrder)
{
    const std::pair<const char*, std::uint32_t> cases[] = {{"CPU::u_1x8", 10},
                                                           {"f_1x32n", 3},
                                                           {"f_1x32", 2},
                                                           {"u_1x16", 8},
                                                           {"u_1x16n", 9},
                                                           {"XYZ", 0},
                                                           {"", 0},
                                                           {"f_4x16n", 5},
                                                           {"f_4x32", 6},
                                                           {"f_2x32", 15},
                                                           {"f_2x32 f_1x16", 15},
                                                           {"u_2x16", 14},
                                                           {"f_2x16", 12}};
    for (const auto& [text, code] : cases) EXPECT_EQ(formatCode(text), code) << text;
    EXPECT_EQ(placeCode("CPU::ANY"), 1U);
    EXPECT_EQ(placeCode("GPU::x"), 2U);
    EXPECT_EQ(placeCode("ANY::ANY"), 0U);
}

TEST_F(Handles, buffersOwnTheirHandleAndAreMadeForTenFormats)
{
    for (std::uint32_t code = 0; code <= 16; ++code) {
        const auto texture = createTexture(code, 5, 3);
        ASSERT_EQ(texture != nullptr, code >= 1 && code <= 10) << code;
        if (!texture) continue;
        const FrameShape shape = frameShape(code, 5, 3);
        EXPECT_TRUE(shape.fits(pixelsOf(int(texture->handle)))) << code;
        EXPECT_EQ(shape.rowLength, code >= 4 && code <= 7 ? 20U : 5U) << code;
        EXPECT_EQ(texture->handle, 1U) << "the handles of the buffers before were released";
    }
    EXPECT_NE(dynamic_cast<CTexture_u1x8*>(createTexture(format::kU1x8, 2, 2).get()), nullptr);
    EXPECT_NE(thrownText([] { createTexture(format::kU1x8, 1U << 30, 1U << 30); }), "");
}

TEST_F(Handles, aSwappedBufferGetsItsShapeBack)
{
    TextureSet a, b;
    a.create(4, 3, 1, format::kU1x16);
    b.create(12, 3, 1, format::kU1x8);
    handles::swap(a.handle(), b.handle());
    EXPECT_EQ(a.pixels().kind(), Kind::Uchar);
    EXPECT_TRUE(a.writable().hasShape(Kind::Ushort, 4, 3));
    EXPECT_EQ(a.pixels().byteSize(), 24U);
    EXPECT_EQ(thrownText([] {
                  TextureSet none;
                  none.create(4, 4, 1, format::kU4x8);
                  none.pixels();
              }),
              "Handle::zero handle!!!");
}

}  // namespace
}  // namespace scansteps
