#include "tests/video/VideoTestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

constexpr int kCell = 16;

}  // namespace

SmartPtr<ILUMImageDIB> SequenceFrame(int32_t width, int32_t height, int32_t bits, int f) {
    const int channels = bits / 8, columns = width / kCell;
    return MakeImage(width, height, bits, [=](int32_t i, int32_t y) {
        const int cell = (y / kCell) * columns + (i / channels) / kCell;
        return uint8_t(((f >> cell) & 1 ? 190 : 60) + 12 * (i % channels));
    });
}

int FrameNumber(ILUM* image) {
    const ImageBytes bytes = BytesOf(image);
    const int channels = bytes.bits / 8, columns = bytes.width / kCell;
    int number = 0;
    for (int cy = 0; cy < bytes.height / kCell; ++cy)
        for (int cx = 0; cx < columns; ++cx)
            if (bytes.rows[cy * kCell + kCell / 2][(cx * kCell + kCell / 2) * channels] > 125)
                number |= 1 << (cy * columns + cx);
    return number;
}

int DifferenceToFrame(ILUM* image, int32_t bits, int f) {
    const ImageBytes got = BytesOf(image);
    SmartPtr<ILUMImageDIB> expected = SequenceFrame(got.width, got.height, bits, f);
    return MaxDifference(BytesOf(expected.Get()), got, bits == 8 ? 0 : 3);
}

SmartPtr<ICreatableSimpleCollection> WriterWith(int count, int32_t width, int32_t height, int32_t bits, int32_t rate) {
    auto writer = CreateByName<ICreatableSimpleCollection>(L"LUMMJPEG", IID_ICreatableSimpleCollection);
    if (!writer) return nullptr;
    writer.As<ILUMAVI>(IID_ILUMAVI)->SetOption(10, rate);
    for (int f = 0; f < count; ++f)
        if (writer->Add(SequenceFrame(width, height, bits, f).Get()) != S_OK) return nullptr;
    return writer;
}

HRESULT SaveAs(IUnknown* writer, const std::string& path) {
    SmartPtr<IFileArchive> archive = QueryAs<IFileArchive>(writer, IID_IFileArchive);
    if (!archive) return E_NOINTERFACE;
    archive->put_Filename(FileNameString(path).Get());
    return archive->Save();
}

SmartPtr<IFileArchive> LoadAvi(const std::string& path, HRESULT* result) {
    auto reader = CreateByName<IFileArchive>(L"LUMAVI", IID_IFileArchive);
    HRESULT hr = E_FAIL;
    if (reader) {
        reader->put_Filename(FileNameString(path).Get());
        hr = reader->Load();
    }
    if (result) *result = hr;
    return reader;
}

int32_t CountOf(IUnknown* collection) {
    int32_t count = -1;
    if (auto simple = QueryAs<ISimpleCollection>(collection, IID_ISimpleCollection)) simple->get_Count(&count);
    return count;
}

int32_t RateOf(IUnknown* avi) {
    int32_t rate = -1;
    if (auto options = QueryAs<ILUMAVI>(avi, IID_ILUMAVI)) options->GetOption(10, &rate);
    return rate;
}

SmartPtr<ILUM> FrameOf(IUnknown* collection, int32_t index, HRESULT* result) {
    SmartPtr<IUnknown> item;
    HRESULT hr = E_NOINTERFACE;
    if (auto simple = QueryAs<ISimpleCollection>(collection, IID_ISimpleCollection))
        hr = simple->get_Item(index, item.Out());
    if (result) *result = hr;
    return QueryAs<ILUM>(item.Get(), IID_ILUM);
}

const RiffNode* RiffNode::Find(const std::string& childCode, const std::string& childType) const {
    for (const RiffNode& child : children)
        if (child.code == childCode && (childType.empty() || child.type == childType)) return &child;
    return nullptr;
}

std::vector<const RiffNode*> RiffNode::All(const std::string& childCode) const {
    std::vector<const RiffNode*> found;
    for (const RiffNode& child : children)
        if (child.code == childCode) found.push_back(&child);
    return found;
}

uint32_t Le32(const std::string& bytes, uint64_t offset) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | uint8_t(bytes.at(offset + i));
    return v;
}

namespace {

void ParseInto(const std::string& bytes, uint64_t position, uint64_t end, RiffNode& parent) {
    while (position + 8 <= end) {
        RiffNode node;
        node.code = bytes.substr(position, 4);
        node.size = Le32(bytes, position + 4);
        node.offset = position;
        const uint64_t bodyEnd = std::min<uint64_t>(position + 8 + node.size, end);
        if ((node.code == "RIFF" || node.code == "LIST") && node.size >= 4) {
            node.type = bytes.substr(position + 8, 4);
            ParseInto(bytes, position + 12, bodyEnd, node);
        }
        parent.children.push_back(node);
        position += 8 + node.size + (node.size & 1);
    }
}

}  // namespace

RiffNode ParseRiff(const std::string& bytes) {
    RiffNode root;
    ParseInto(bytes, 0, bytes.size(), root);
    return root;
}

std::string U16(uint16_t v) { return std::string{char(v & 0xFF), char(v >> 8)}; }
std::string U32(uint32_t v) { return U16(uint16_t(v)) + U16(uint16_t(v >> 16)); }

std::string Chunk(const std::string& code, const std::string& body) {
    std::string chunk = code + U32(uint32_t(body.size())) + body;
    if (body.size() & 1) chunk += '\0';
    return chunk;
}

std::string ListOf(const std::string& code, const std::string& type, const std::string& body) {
    return code + U32(uint32_t(body.size() + 4)) + type + body;
}

std::string VideoStreamList(const std::string& compression, int32_t width, int32_t height, uint16_t bits,
                            uint32_t rate, uint32_t scale, const std::string& palette) {
    const std::string fourcc = compression.empty() ? std::string(4, '\0') : compression;
    std::string strh = "vids" + fourcc + U32(0) + U32(0) + U32(0) + U32(scale) + U32(rate) + U32(0) + U32(0) +
                       U32(0) + U32(0xFFFFFFFF) + U32(0) + std::string(8, '\0');
    std::string strf = U32(40) + U32(uint32_t(width)) + U32(uint32_t(height)) + U16(1) + U16(bits) + fourcc +
                       U32(0) + U32(0) + U32(0) + U32(uint32_t(palette.size() / 4)) + U32(0) + palette;
    return ListOf("LIST", "strl", Chunk("strh", strh) + Chunk("strf", strf));
}

std::string AviFile(const std::string& streamLists, const std::vector<std::string>& chunks, bool withIndex) {
    std::string avih = U32(66666) + std::string(52, '\0');
    std::string movi, index;
    for (const std::string& chunk : chunks) {
        index += chunk.substr(0, 4) + U32(0x10) + U32(uint32_t(movi.size() + 4)) + chunk.substr(4, 4);
        movi += chunk;
    }
    std::string body = ListOf("LIST", "hdrl", Chunk("avih", avih) + streamLists) + ListOf("LIST", "movi", movi);
    if (withIndex) body += Chunk("idx1", index);
    return ListOf("RIFF", "AVI ", body);
}

std::string RunCommand(const std::string& command, int* status) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) {
        if (status) *status = -1;
        return output;
    }
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, got);
    const int code = pclose(pipe);
    if (status) *status = code;
    return output;
}

bool HaveTool(const std::string& name) {
    int status = -1;
    RunCommand("command -v " + name + " >/dev/null 2>&1", &status);
    return status == 0;
}

std::map<std::string, std::string> Probe(const std::string& path) {
    std::map<std::string, std::string> values;
    std::istringstream lines(RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                                        "stream=codec_name,width,height,r_frame_rate,nb_read_frames "
                                        "-of default=noprint_wrappers=1 '" + path + "' 2>/dev/null"));
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
}
