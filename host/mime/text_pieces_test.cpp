// Texts that come in pieces are what they are as a whole, wherever they are cut.
#include <gtest/gtest.h>

#include <sstream>

#include "host/mail/file_form.h"
#include "host/mime/charset.h"
#include "host/mime/eml_writer.h"
#include "host/mime/flowed_text.h"

namespace quorvane {
namespace {

// Puts `bytes` in pieces of `size` bytes.
template <class Stage>
std::string InPieces(Stage& stage, std::string_view bytes, std::size_t size)
{
    std::string result;
    for (std::size_t at = 0; at < bytes.size(); at += size)
        stage.Put(bytes.substr(at, size), result);
    stage.End(result);
    return result;
}

struct CutCase {
    const char* charset;
    std::string bytes;
};

const std::vector<CutCase>& CutCases()
{
    static const std::vector<CutCase> cases = {
        {"utf-8",
         "\xEF\xBB\xBF"
         "aä€𝄞\xFF\xC3"},
        {"utf-8", "\xEF\xBB"},
        {"utf-8", ""},
        {"", "aä€𝄞"},
        {"", "caf\xE9 \xC3"},
        {"x-nobody-knows", "\xC3\xA4\xE4"},
        {"iso-8859-1", "\x80 \x93x\x94\xFC"},
        {"utf-16", std::string("\xFF\xFE\x41\0\x34\xD8\x1E\xDD\x42", 9)},
        {"utf-16", std::string("\xFE\xFF\0\x41\0\0", 6)},
        {"utf-16", "A"},
        {"iso-2022-jp", "\x1B$BF|K\\\x1B(B and \x1B$BF|"},
        {"shift_jis", "\x93\xFA\x96\x7B\x93"},
        {"windows-1258",
         "a\xEC"
         "e\xD2o\xF2"},
        {"gb18030", "\x81\x30\x84\x36\x81\x30"},
    };
    return cases;
}

TEST(TextPiecesTest, ACharsetIsDecodedTheSameWhereverItsBytesAreCut)
{
    for (const CutCase& each : CutCases()) {
        const std::string whole = DecodeText(each.bytes, each.charset);
        for (std::size_t size = 1; size <= each.bytes.size(); ++size) {
            TextDecoder decoder(each.charset, [&] { return IsUtf8(each.bytes); });
            EXPECT_EQ(InPieces(decoder, each.bytes, size), whole) << each.charset << " by " << size;
        }
    }
}

TEST(TextPiecesTest, ParagraphsAreJoinedWhereverTheTextIsCut)
{
    const std::string text = "one \r\ntwo\r\n>> a \n>> b\n> c \nd\n-- \nPiet \nend ";
    for (const bool deleteSpace : {false, true}) {
        for (std::size_t size = 1; size <= text.size(); ++size) {
            FlowedJoiner joiner(deleteSpace);
            EXPECT_EQ(InPieces(joiner, text, size), JoinFlowedText(text, deleteSpace)) << size;
        }
    }
}

TEST(TextPiecesTest, AFileInUtf16IsReadTheSameWhereverItIsCut)
{
    const std::string big("\xFE\xFF\0S\0:\xD8\x34\xDD\x1E\0\0\xD8\x34\0x\0", 17);
    for (std::size_t size = 1; size <= big.size(); ++size) {
        Utf16File file(big);
        ASSERT_TRUE(file.Is());
        EXPECT_EQ(InPieces(file, big, size), "S:𝄞\uFFFD\uFFFDx\uFFFD") << size;
    }
}

TEST(TextPiecesTest, ATextIsSurveyedAndWrittenTheSameWhereverItIsCut)
{
    const std::string texts[] = {"plain\r\nFrom\r\n",
                                 "x\r\nFrom me \r\n.\r\n \t\r\nF",
                                 "caf\xC3\xA9 = " + std::string(200, 'y') + "\r\n",
                                 "lone\rone",
                                 "end\r",
                                 "\r\n\n",
                                 std::string(201, 'z'),
                                 ""};
    for (const std::string& text : texts) {
        const auto written = [&](std::size_t size) {
            std::ostringstream out;
            TextSurvey survey;
            for (std::size_t at = 0; at < text.size(); at += size)
                survey.Put(std::string_view(text).substr(at, size));
            EmlWriter eml(out);
            TextWriter writer(eml, survey.Best());
            for (std::size_t at = 0; at < text.size(); at += size)
                writer.Write(std::string_view(text).substr(at, size));
            writer.End();
            return EncodingName(survey.Best()) + ("\n" + out.str());
        };
        for (std::size_t size = 1; size < text.size(); ++size)
            EXPECT_EQ(written(size), written(text.size())) << size;
    }
}

}  // namespace
}  // namespace quorvane
