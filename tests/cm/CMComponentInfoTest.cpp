#include <cm/CMComponentInfo.h>

#include <cm/CMComponentManager.h>

#include "support/TestSupport.h"
#include "support/WireBytes.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <sys/stat.h>

#include <climits>
#include <fstream>
#include <memory>
#include <string>

using cmtest::bytesOf;
using cmtest::fourccName;
using cmtest::Wire;
using ZR::CData;
using ZR::CString;
using ZR::fourcc;
using ZR::kAnyFourCC;
using ZR::RPtr;
using ZR::RString;
using namespace ZR::CM;

namespace {

struct DtdDeleter {
    void operator()(xmlDtd* dtd) const { xmlFreeDtd(dtd); }
};

// Allows documents the project's definition refuses but a component's own might allow.
const char kLenientDtd[] =
    "<!ELEMENT info ANY><!ELEMENT foo ANY><!ELEMENT common ANY><!ELEMENT objects ANY>"
    "<!ELEMENT decompressor ANY><!ELEMENT extra ANY><!ELEMENT importer ANY>"
    "<!ELEMENT fileExtensions ANY><!ELEMENT mimeTypes ANY><!ELEMENT bogus ANY>"
    "<!ELEMENT priority ANY>";

std::string document(const std::string& common, const std::string& objects,
                     const std::string& kind) {
    return "<info>\n <common>" + common + "</common>\n <objects>" + objects + "</objects>\n " +
           kind + "\n</info>\n";
}

std::string codesOf(const RComponentInfoBase& info) {
    return fourccName(info.type) + " " + fourccName(info.media) + " " + fourccName(info.subType) +
           " " + fourccName(info.vendor) + " " + fourccName(info.version) + " " +
           fourccName(info.componentFrameworkVersion);
}

// "name:in>out" for each item.
std::string itemsOf(const RFormatObjectMap& map) {
    std::string out;
    for (const ComponentFormatItem& item : map.getItems()) {
        out += std::string(item.name.c_str()) + ":" + fourccName(item.inFormat) + ">" +
               fourccName(item.outFormat) + " ";
    }
    return out;
}

std::string textsOf(const std::set<RString>& set) {
    std::string out;
    for (const RString& text : set) {
        out += std::string(text.c_str()) + ";";
    }
    return out;
}

class ComponentInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        mDtd.reset(xmlParseDTD(nullptr, BAD_CAST CM_SOURCE_DIR "/data/info.dtd"));
        std::ofstream(mTemp.file("lenient.dtd")) << kLenientDtd;
        mLenientDtd.reset(xmlParseDTD(nullptr, BAD_CAST mTemp.file("lenient.dtd").c_str()));
        ASSERT_TRUE(mDtd && mLenientDtd);
        // Infos find their info.xml below the default manager's component directory.
        RComponentManager::getDefault()->setComponentDirectory(CString(mTemp.path().c_str()));
    }

    // Writes text (unless empty) as the info.xml of info's directory and loads it, with
    // standard error captured into mErrors.
    int load(RComponentInfo& info, const std::string& text, xmlDtd* dtd = nullptr) {
        const std::string dir = mTemp.file(info.directoryName.c_str());
        mkdir(dir.c_str(), 0700);
        if (!text.empty()) {
            std::ofstream(dir + "/info.xml") << text;
        }
        testing::internal::CaptureStderr();
        const int result = info.loadInfoXML(dtd ? dtd : mDtd.get());
        mErrors = testing::internal::GetCapturedStderr();
        return result;
    }
    int loadDecoder(const std::string& text, xmlDtd* dtd = nullptr) {
        RDecompressorInfo info{RString(("d" + std::to_string(++mSerial)).c_str())};
        return load(info, text, dtd);
    }

    cmtest::TempDir mTemp;
    std::unique_ptr<xmlDtd, DtdDeleter> mDtd;
    std::unique_ptr<xmlDtd, DtdDeleter> mLenientDtd;
    std::string mErrors;
    int mSerial = 0;
};

}  // namespace

TEST_F(ComponentInfoTest, EveryKindLoadsItsOwnDocument) {
    const std::tuple<RComponentInfo*, const char*, const char*> kinds[] = {
        {new RImporterInfo(RString("a.importer")), "importer", "impt"},
        {new RDecompressorInfo(RString("a.decoder")), "decompressor", "dcmp"},
        {new RFilterInfo(RString("a.filter")), "filter", "fltr"},
        {new RConverterInfo(RString("a.converter")), "converter", "conv"},
        {new RCompressorInfo(RString("a.encoder")), "compressor", "cmpr"},
        {new RExporterInfo(RString("a.exporter")), "exporter", "expt"},
        {new RPacketizerInfo(RString("a.packetizer")), "packetizer", "pckt"},
    };
    for (const auto& [made, kind, code] : kinds) {
        const RPtr<RComponentInfo> info(made);
        const std::string word = kind;
        ASSERT_EQ(load(*info, document("<name>N</name><type>" + word +
                                           "</type><media>audio</media><subType>mp4a</subType>"
                                           "<vendor>acme</vendor><version>0102</version>"
                                           "<componentFrameworkVersion>cf10"
                                           "</componentFrameworkVersion>",
                                       "<object name=\"o.so\"/>", "<" + word + "/>")),
                  0)
            << word << mErrors;
        EXPECT_STREQ(info->name.c_str(), "N");
        EXPECT_EQ(codesOf(*info), std::string(code) + " audi mp4a acme 0102 cf10");
        EXPECT_EQ(itemsOf(info->formatMap), "o.so:*>* ");
    }
    // Unknown words give 0; FourCC texts are cut at four characters or padded with zeros.
    RDecompressorInfo odd{RString("odd")};
    ASSERT_EQ(load(odd, document("<type>gizmo</type><media>Video</media><subType>mp3</subType>"
                                 "<vendor></vendor><version>abcdef</version>",
                                 "", "")),
              0);
    EXPECT_EQ(codesOf(odd), ".... .... mp3. .... abcd *");
}

TEST_F(ComponentInfoTest, ObjectsExpandInputsTimesOutputsWithKindDefaults) {
    const std::string objects =
        "<object name=\"e\"/><object name=\"b\">\n</object>"
        "<object name=\"t\"><in>mp4v</in><in>avc1</in></object>"
        "<object name=\"g\"><in>aaaa</in><out>x001</out><rate>48000</rate><in>bbbb</in>"
        "<out>x002</out><channel>2</channel><out>x003</out><rate>-1</rate><in/></object>";
    RDecompressorInfo decoder{RString("a.decoder")};
    RExporterInfo exporter{RString("a.exporter")};
    ASSERT_EQ(load(decoder, document("<type>decompressor</type>", objects, "")), 0);
    ASSERT_EQ(load(exporter, document("<type>exporter</type>", objects, "")), 0);
    const std::string grid =
        "g:aaaa>x001 g:aaaa>x002 g:aaaa>x003 g:bbbb>x001 g:bbbb>x002 g:bbbb>x003 ";
    EXPECT_EQ(itemsOf(decoder.formatMap), "e:*>* b:*>* t:mp4v>mp4v t:avc1>avc1 " + grid);
    EXPECT_EQ(itemsOf(exporter.formatMap), "e:*>* b:*>* t:mp4v>* t:avc1>* " + grid);

    const auto& items = decoder.formatMap.getItems();
    EXPECT_EQ(items[0].rates, std::vector<unsigned int>{kAnyFourCC});
    EXPECT_EQ(items[0].channels, std::vector<unsigned int>{kAnyFourCC});
    EXPECT_EQ(items[9].rates, (std::vector<unsigned int>{48000, kAnyFourCC}));
    EXPECT_EQ(items[9].channels, std::vector<unsigned int>{2});
}

TEST_F(ComponentInfoTest, KindElementsDecideTheResultAndTheImporterReadsItsOwn) {
    EXPECT_EQ(loadDecoder(document("", "", "<filter/>")), -1);
    EXPECT_EQ(loadDecoder(document("", "", "")), 0);
    EXPECT_EQ(loadDecoder(document("", "", "<decompressor/><extra/>"), mLenientDtd.get()), -1);
    EXPECT_EQ(loadDecoder(document("", "", "<extra/><decompressor/>"), mLenientDtd.get()), 0);
    RImporterInfo misnamed{RString("odd.importer")};
    EXPECT_EQ(load(misnamed, document("", "", "<exporter/>")), 0);

    RImporterInfo importer{RString("mpeg.importer")};
    ASSERT_EQ(load(importer, document("", "",
                                      "<importer><fileExtensions><fileExtension>mp4</fileExtension>"
                                      "<fileExtension>mov</fileExtension><fileExtension>mp4"
                                      "</fileExtension><fileExtension/></fileExtensions><mimeTypes>"
                                      "<mimeType>video/mp4</mimeType><mimeType/></mimeTypes>"
                                      "<priority>200</priority></importer>")),
              0);
    EXPECT_EQ(textsOf(importer.fileExtensions), "mov;mp4;");
    EXPECT_EQ(textsOf(importer.mimeTypes), "video/mp4;");
    EXPECT_EQ(importer.priority, 200);
    EXPECT_TRUE(importer < RImporterInfo());  // higher priority sorts first
    EXPECT_FALSE(RImporterInfo() < importer);
    EXPECT_FALSE(RImporterInfo() < RImporterInfo());

    // Only fileExtension children are extensions; any child is a MIME type.
    RImporterInfo loose{RString("loose.importer")};
    ASSERT_EQ(load(loose,
                   document("", "",
                            "<importer><fileExtensions><bogus>avi</bogus></fileExtensions>"
                            "<mimeTypes><bogus>video/avi</bogus></mimeTypes>"
                            "<priority>99999999999</priority></importer>"),
                   mLenientDtd.get()),
              0);
    EXPECT_EQ(textsOf(loose.fileExtensions), "");
    EXPECT_EQ(textsOf(loose.mimeTypes), "video/avi;");
    EXPECT_EQ(loose.priority, INT_MAX);
}

TEST_F(ComponentInfoTest, UnreadableOrInvalidDocumentsGiveMinusOne) {
    RDecompressorInfo unnamed{RString("")};
    EXPECT_EQ(load(unnamed, document("", "", "")), -1);
    RDecompressorInfo noDtd{RString("nodtd")};
    load(noDtd, document("", "", ""));
    EXPECT_EQ(noDtd.loadInfoXML(nullptr), -1);
    RDecompressorInfo missing{RString("missing")};
    EXPECT_EQ(load(missing, ""), -1);
    EXPECT_NE(mErrors.find("missing/info.xml"), std::string::npos) << mErrors;

    EXPECT_EQ(loadDecoder("<info><common>"), -1);
    EXPECT_NE(mErrors.find("info.xml"), std::string::npos) << mErrors;
    EXPECT_EQ(loadDecoder(" "), -1);
    EXPECT_EQ(loadDecoder("<info><common><colour>red</colour></common></info>"), -1);
    EXPECT_NE(mErrors.find("colour"), std::string::npos) << mErrors;
    EXPECT_EQ(loadDecoder("<foo><common/></foo>", mLenientDtd.get()), -1);

    // Neither a directory nor a FIFO is read (opening a FIFO would block).
    mkdir(mTemp.file("dir").c_str(), 0700);
    mkdir(mTemp.file("dir/info.xml").c_str(), 0700);
    mkdir(mTemp.file("fifo").c_str(), 0700);
    ASSERT_EQ(mkfifo(mTemp.file("fifo/info.xml").c_str(), 0600), 0);
    for (const char* dir : {"dir", "fifo"}) {
        RDecompressorInfo info{RString(dir)};
        EXPECT_EQ(load(info, ""), -1) << dir;
        EXPECT_NE(mErrors.find("not a regular file"), std::string::npos) << mErrors;
    }
}

// A file of several megabytes whose one object pairs 300 inputs with 300 outputs loads
// every pair.
TEST_F(ComponentInfoTest, LargeDocumentsLoadEveryFormatPair) {
    std::string pairs;
    for (const char* element : {"in", "out"}) {
        for (int i = 0; i < 300; ++i) {
            pairs +=
                std::string("<") + element + ">" + std::to_string(1000 + i) + "</" + element + ">";
        }
    }
    const std::string object = "<object name=\"o\">" + pairs + "</object>";
    RDecompressorInfo large{RString("large")};
    ASSERT_EQ(load(large, document("", object, "") + std::string(3 << 20, '\n')), 0) << mErrors;
    const std::vector<ComponentFormatItem>& items = large.formatMap.getItems();
    ASSERT_EQ(items.size(), 90000u);
    EXPECT_EQ(fourccName(items[299].outFormat), "1299");
    EXPECT_EQ(fourccName(items.back().inFormat), "1299");
}

TEST_F(ComponentInfoTest, StreamFormsAreByteExactAndSurviveTruncation) {
    RImporterInfo info{RString("m.importer")};
    info.name = "Imp";
    info.type = 1;
    info.media = 2;
    info.subType = 3;
    info.vendor = 4;
    info.version = 5;
    info.componentFrameworkVersion = 6;
    info.formatMap.set(7, 8, RString("o.so"), {90000}, {1});
    info.fileExtensions = {RString("mp4"), RString("m4v")};
    info.mimeTypes = {RString("video/mp4")};
    info.priority = 300;
    RComponentInfoMatch match;
    static_cast<RComponentInfoBase&>(match) = info;
    match.outFormat = 9;
    RPacketizerInfo packetizer{RString("m.importer")};
    static_cast<RComponentInfoBase&>(packetizer) = info;
    packetizer.formatMap = info.formatMap;

    Wire base = Wire().str("Imp").u32(1).u32(2).u32(3).u32(4).u32(5).u32(6);
    Wire component = base;
    component.str("m.importer").u32(1).u32(7).u32(8).u32(1).u32(90000).str("o.so");
    Wire importer = component;
    importer.u32(2).str("m4v").str("mp4").u32(1).str("video/mp4");
    CData asBase, asMatch, asPacketizer, asImporter;
    asBase << static_cast<const RComponentInfoBase&>(info);
    asMatch << match;
    asPacketizer << packetizer;
    asImporter << info;
    EXPECT_EQ(bytesOf(asBase), base.bytes);
    EXPECT_EQ(bytesOf(asMatch), base.u32(kAnyFourCC).u32(9).bytes);
    EXPECT_EQ(bytesOf(asPacketizer), component.bytes);
    EXPECT_EQ(bytesOf(asImporter), importer.bytes);

    RImporterInfo back;
    asImporter.rewind();
    asImporter >> back;
    CData again;
    again << back;
    EXPECT_EQ(bytesOf(again), importer.bytes);
    EXPECT_EQ(back.priority, 100);  // not carried

    for (size_t length = 0; length < importer.bytes.size(); ++length) {
        CData part(importer.bytes.data(), static_cast<int>(length));
        RImporterInfo partial;
        part >> partial;
        EXPECT_TRUE(part.failed() && partial.mimeTypes.empty()) << length;
    }
    const Wire corrupt = Wire(component).u32(0xFFFFFFFFu).u32(0xFFFFFFF0u);
    CData garbage(corrupt.bytes.data(), static_cast<int>(corrupt.bytes.size()));
    RImporterInfo none;
    garbage >> none;
    EXPECT_TRUE(garbage.failed() && none.fileExtensions.empty() && none.mimeTypes.empty());
}
