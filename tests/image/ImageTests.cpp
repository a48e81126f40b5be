// "LUMImageDIB", "LUMImageCANVAS" and "LUMStack" through their interfaces.
#include "tests/image/ImageTestSupport.h"

#include <algorithm>
#include <cstring>

namespace {

// An ILUM of another module: gray pixels in rows `stride` bytes apart.
class ForeignImage final : public CObject<ForeignImage>, public ILUM {
    LUM_OBJECT_UNKNOWN(ForeignImage)
public:
    HRESULT get_Width(int32_t* v) override { *v = width; return S_OK; }
    HRESULT get_Height(int32_t* v) override { *v = height; return S_OK; }
    HRESULT get_BitsPerPixel(int32_t* v) override { *v = bits; return S_OK; }
    HRESULT get_Stride(int32_t* v) override { *v = stride; return S_OK; }
    HRESULT get_Bits(uint8_t** p) override { *p = pixels; return S_OK; }
    int32_t width = 0, height = 0, bits = 8, stride = 0;
    uint8_t* pixels = nullptr;
};

}  // namespace

const InterfaceEntry<ForeignImage> ForeignImage::kInterfaces[] = {
    InterfaceEntry<ForeignImage>::Of<ILUM>(IID_ILUM),
    InterfaceEntry<ForeignImage>::End(),
};

namespace {

TEST(ImagingModules, EachCreatesExactlyItsClassesAndEveryObjectReportsItsName) {
    const std::pair<std::string, std::vector<const wchar_t*>> modules[] = {
        {"LUMImage", {L"LUMImageDIB", L"LUMImageCANVAS", L"LUMStack", L"LUMTestCamera"}},
        {"LUMArch", {L"LUMArchive", L"LUMFileEx"}},
    };
    for (const auto& [file, classes] : modules) {
        LoadedModule module = LoadModule(file);
        for (const wchar_t* name : classes) {
            SmartPtr<IObjectInfo> info = CreateFrom<IObjectInfo>(module, name, IID_IObjectInfo);
            ASSERT_TRUE(info) << file;
            tagREFString reported{};
            ASSERT_EQ(S_OK, info->GetName(0, &reported));
            EXPECT_EQ(std::wstring(name), std::wstring(reported.text, size_t(reported.length)));
        }
        EXPECT_EQ(nullptr, CreatorOf(module, L"LUMImage"));
        EXPECT_EQ(nullptr, CreatorOf(module, file == "LUMImage" ? L"LUMArchive" : L"LUMStack"));
    }
}

TEST(ImageDIB, CreateGivesZeroedRowsWhoseStrideIsTheRowRoundedUpToFour) {
    SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    ASSERT_TRUE(image);
    ImageBytes empty = BytesOf(image.Get());
    EXPECT_EQ(0, empty.width + empty.height + empty.bits + empty.stride);
    uint8_t* pixels = reinterpret_cast<uint8_t*>(1);
    image->get_Bits(&pixels);
    EXPECT_EQ(nullptr, pixels);

    struct Case { int32_t width, bits, stride; };
    for (Case c : {Case{1, 8, 4}, Case{5, 8, 8}, Case{3, 24, 12}, Case{5, 24, 16}, Case{3, 32, 12}}) {
        ASSERT_EQ(S_OK, image->Create(c.width, 3, c.bits));
        int32_t stride = 0;
        image->get_Stride(&stride);
        EXPECT_EQ(c.stride, stride) << c.width << "x" << c.bits;
        image->get_Bits(&pixels);
        for (int32_t i = 0; i < 3 * stride; ++i) ASSERT_EQ(0, pixels[i]);
    }
}

TEST(ImageDIB, LargeImagesAreZeroedAndCopiedWhateverMemoryTheyReuse) {
    // Frame-sized blocks take another allocation path than small ones; a
    // block freed by one image and handed to the next must still be zeroed.
    struct Size { int32_t width, height, bits; };
    for (Size size : {Size{1280, 1024, 24}, Size{1280, 1024, 8}, Size{1024, 683, 24}, Size{2048, 1024, 8}}) {
        for (int round = 0; round < 3; ++round) {
            SmartPtr<ILUMImageDIB> image = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
            ASSERT_EQ(S_OK, image->Create(size.width, size.height, size.bits));
            ImageBytes bytes = BytesOf(image.Get());
            for (const auto& row : bytes.rows)
                ASSERT_TRUE(std::all_of(row.begin(), row.end(), [](uint8_t v) { return v == 0; }))
                    << size.width << "x" << size.height << "x" << size.bits << " round " << round;
            uint8_t* pixels = nullptr;
            image->get_Bits(&pixels);
            std::memset(pixels, 0xA5, size_t(bytes.stride) * size_t(size.height));

            SmartPtr<ILUMImageDIB> copy = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
            ASSERT_EQ(S_OK, copy->Copy(image.Get(), 255));
            pixels[size_t(bytes.stride) * size_t(size.height) - 1] = 0x11;
            ImageBytes copied = BytesOf(copy.Get());
            EXPECT_EQ(0xA5, copied.rows.back().back());
            EXPECT_EQ(0xA5, copied.rows.front().front());
        }
    }
}

TEST(ImageDIB, CreateRefusesBadLayoutsAndKeepsWhatItHeld) {
    SmartPtr<ILUMImageDIB> image = MakeImage(4, 4, 8, [](int32_t i, int32_t y) { return uint8_t(i + y); });
    ASSERT_TRUE(image);
    uint8_t* before = nullptr;
    image->get_Bits(&before);
    EXPECT_EQ(E_INVALIDARG, image->Create(0, 4, 8));
    EXPECT_EQ(E_INVALIDARG, image->Create(4, -1, 8));
    EXPECT_EQ(E_INVALIDARG, image->Create(4, 4, 16));
    EXPECT_EQ(E_FAIL, image->Create(60000, 60000, 32));  // beyond the size an image may take
    uint8_t* after = nullptr;
    image->get_Bits(&after);
    EXPECT_EQ(before, after);
    EXPECT_EQ(6, after[4 * 3 + 3]);  // pixel (3, 3) as filled
}

TEST(ImageDIB, CopyIsAFullIndependentCopyWhateverTheMaskOrSourceStride) {
    SmartPtr<ILUMImageDIB> source = MakeImage(7, 5, 24, [](int32_t i, int32_t y) { return uint8_t(i * 7 + y); });
    SmartPtr<ILUMImageDIB> copy = CreateByName<ILUMImageDIB>(L"LUMImageDIB", IID_ILUMImageDIB);
    for (int32_t mask : {255, 0}) {
        ASSERT_EQ(S_OK, copy->Copy(source.Get(), mask));
        EXPECT_EQ(0, MaxDifference(BytesOf(source.Get()), BytesOf(copy.Get())));
    }
    uint8_t* sourcePixels = nullptr;
    source->get_Bits(&sourcePixels);
    sourcePixels[0] ^= 0xFF;
    EXPECT_EQ(255, MaxDifference(BytesOf(source.Get()), BytesOf(copy.Get())));
    EXPECT_EQ(S_OK, copy->Copy(copy.Get(), 0));  // a copy of itself changes nothing

    // Rows of another module's image 64 bytes apart become rows 8 bytes apart.
    std::vector<uint8_t> foreignPixels(64 * 3);
    for (size_t i = 0; i < foreignPixels.size(); ++i) foreignPixels[i] = uint8_t(i);
    SmartPtr<ForeignImage> foreign = CObject<ForeignImage>::New();
    foreign->width = 5, foreign->height = 3, foreign->stride = 64, foreign->pixels = foreignPixels.data();
    ASSERT_EQ(S_OK, copy->Copy(foreign.Get(), 255));
    ImageBytes copied = BytesOf(copy.Get());
    EXPECT_EQ(8, copied.stride);
    EXPECT_EQ(8, copied.bits);
    EXPECT_EQ((std::vector<uint8_t>{128, 129, 130, 131, 132}), copied.rows[2]);

    foreign->stride = 4;  // narrower than a row: refused
    EXPECT_EQ(E_INVALIDARG, copy->Copy(foreign.Get(), 0));
    ASSERT_EQ(S_OK, copy->Copy(source.Get(), 0));
    EXPECT_EQ(E_POINTER, copy->Copy(nullptr, 255));
    EXPECT_EQ(0, BytesOf(copy.Get()).width);  // left empty
}

TEST(ImageCANVAS, IsADIBWithARectThatPixelsDoNotTouch) {
    SmartPtr<ILUMImageCANVAS> canvas = CreateByName<ILUMImageCANVAS>(L"LUMImageCANVAS", IID_ILUMImageCANVAS);
    ASSERT_TRUE(canvas);
    EXPECT_EQ(IdentityPointer(canvas.Get()), IdentityPointer(canvas.As<ILUM>(IID_ILUM).Get()));
    CANVASRect rect{1, 1, 1, 1};
    canvas->get_Rect(&rect);
    EXPECT_EQ(0, rect.left | rect.top | rect.right | rect.bottom);
    ASSERT_EQ(S_OK, canvas->put_Rect(CANVASRect{10, 20, 330, 260}));
    ASSERT_EQ(S_OK, canvas->Create(320, 240, 32));
    canvas->get_Rect(&rect);
    EXPECT_EQ(330, rect.right);
    EXPECT_EQ(260, rect.bottom);
    EXPECT_EQ(320, BytesOf(canvas.Get()).width);
}

// --- LUMStack ---------------------------------------------------------------

class StackTest : public ::testing::Test {
protected:
    void SetUp() override {
        stack = CreateByName<IStackCollection>(L"LUMStack", IID_IStackCollection);
        ASSERT_TRUE(stack);
        list = stack.As<ISimpleCollection>(IID_ISimpleCollection);
        for (int i = 0; i < 6; ++i) items.push_back(CObject<PlainObject>::New());
    }
    void TearDown() override {
        stack = nullptr;
        list = nullptr;
        items.clear();
        EXPECT_EQ(0, PlainObject::live);
    }
    void AddItems(int count) {
        for (int i = 0; i < count; ++i) ASSERT_EQ(S_OK, stack->Add(items[i]->PrimaryUnknown()));
    }
    /// Which of `items` the stack holds, oldest first.
    std::vector<int> Held() {
        std::vector<int> held;
        int32_t count = 0;
        list->get_Count(&count);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IUnknown> item;
            list->get_Item(i, item.Out());
            for (size_t k = 0; k < items.size(); ++k)
                if (items[k]->PrimaryUnknown() == item.Get()) held.push_back(static_cast<int>(k));
        }
        return held;
    }

    SmartPtr<IStackCollection> stack;
    SmartPtr<ISimpleCollection> list;
    std::vector<SmartPtr<PlainObject>> items;
};

TEST_F(StackTest, ARingDropsAndReleasesTheOldestAlsoWhenItShrinks) {
    ASSERT_EQ(S_OK, stack->SetSize(3, 1));
    AddItems(5);
    EXPECT_EQ((std::vector<int>{2, 3, 4}), Held());
    EXPECT_EQ(1u, RefCountOf(items[0]->PrimaryUnknown()));  // the stack let go of it
    EXPECT_EQ(2u, RefCountOf(items[4]->PrimaryUnknown()));

    ASSERT_EQ(S_OK, stack->SetSize(1, 1));
    EXPECT_EQ((std::vector<int>{4}), Held());
    int32_t capacity = 0, count = 0;
    stack->GetSize(&capacity, &count);
    EXPECT_EQ(1, capacity);
    EXPECT_EQ(1, count);

    ASSERT_EQ(S_OK, stack->SetSize(0, 1));  // below 1: no limit
    stack->RemoveAll();
    AddItems(6);
    EXPECT_EQ(6u, Held().size());
}

TEST_F(StackTest, AReserveOnlyGrowsAndReportsTheCapacityLastSet) {
    int32_t capacity = -1, count = -1;
    stack->GetSize(&capacity, &count);
    EXPECT_EQ(0, capacity);
    EXPECT_EQ(0, count);
    ASSERT_EQ(S_OK, stack->SetSize(2, 0));
    AddItems(5);
    ASSERT_EQ(S_OK, stack->SetSize(1, 0));  // shrinking a reserve drops nothing
    stack->GetSize(&capacity, nullptr);
    EXPECT_EQ(1, capacity);
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), Held());
}

TEST_F(StackTest, RemovalHandsTheReferenceToTheCallerAndEmptyStacksFail) {
    AddItems(3);
    SmartPtr<IUnknown> oldest, newest, peek;
    ASSERT_EQ(S_OK, stack->RemoveOldest(oldest.Out()));
    ASSERT_EQ(S_OK, stack->RemoveNewest(newest.Out()));
    EXPECT_EQ(items[0]->PrimaryUnknown(), oldest.Get());
    EXPECT_EQ(items[2]->PrimaryUnknown(), newest.Get());
    EXPECT_EQ(2u, RefCountOf(oldest.Get()));  // ours and the test's, none of the stack's
    ASSERT_EQ(S_OK, stack->get_Newest(peek.Out()));
    EXPECT_EQ(items[1]->PrimaryUnknown(), peek.Get());
    ASSERT_EQ(S_OK, stack->get_Oldest(peek.Out()));
    EXPECT_EQ(items[1]->PrimaryUnknown(), peek.Get());
    EXPECT_EQ((std::vector<int>{1}), Held());

    // A null entry is kept like any other.
    ASSERT_EQ(S_OK, stack->Add(nullptr));
    ASSERT_EQ(S_OK, stack->RemoveNewest(peek.Out()));
    EXPECT_FALSE(peek);

    ASSERT_EQ(S_OK, stack->RemoveAll());
    IUnknown* item = items[5]->PrimaryUnknown();
    EXPECT_EQ(E_FAIL, stack->RemoveOldest(&item));
    EXPECT_EQ(nullptr, item);
    EXPECT_EQ(E_FAIL, stack->RemoveNewest(peek.Out()));
    EXPECT_EQ(E_FAIL, stack->get_Oldest(peek.Out()));
    EXPECT_EQ(E_INVALIDARG, list->get_Item(0, peek.Out()));
    EXPECT_FALSE(peek);
}

}  // namespace
