#include <nv/archive.h>
#include <nv/crypto.h>
#include <nv/file.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "temporary_folder.h"

namespace {

constexpr std::size_t kLimit = 16u << 20;

TEST(FileXLoad, readsRegularFilesOfUpTo16MegabytesAndNothingElse) {
    const TemporaryFolder folder;
    const std::string text("a\0b\r\n", 5);
    std::string out = "before";
    EXPECT_EQ(FileX::Load(folder.write("text", text).string(), out), 5);
    EXPECT_EQ(out, text);
    EXPECT_EQ(FileX::Load(folder.write("empty", "").string(), out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(FileX::Load(folder.write("limit", std::string(kLimit, 'x')).string(), out),
              static_cast<RESULTX>(kLimit));

    out = "before";
    folder.write("over", std::string(kLimit + 1, 'x'));
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("text", (folder / "link").c_str()), 0);
    for (const char* name : {"over", "fifo", "link", "absent", ".", "text/below"}) {
        EXPECT_LT(FileX::Load((folder / name).string(), out), 0) << name;
        EXPECT_EQ(out, "before") << name;
    }
    EXPECT_LT(FileX::Load("/dev/zero", out), 0);
    // A file whose size on record is 0 although it has content.
    EXPECT_GT(FileX::Load("/proc/self/status", out), 0);
}

TEST(ComputeFileHash, givesTheDigestInEachTextForm) {
    using nv::crypto::CryptoEncoding;
    const TemporaryFolder folder;
    const std::string file = folder.write("f", "abc").string();
    boost::system::error_code error = make_error_code(boost::system::errc::io_error);
    EXPECT_EQ(nv::crypto::computeFileHash(file, "md5", error, CryptoEncoding::kHexLower),
              "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_FALSE(error);
    EXPECT_EQ(nv::crypto::computeFileHash(file, "md5", error, CryptoEncoding::kBase64),
              "kAFQmDzST7DWlj99KOF/cg==");
    EXPECT_EQ(nv::crypto::computeFileHash(file, "sha256", error, CryptoEncoding::kRaw).size(), 32u);

    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    for (const auto& [name, algorithm] :
         {std::pair{"absent", "md5"}, {"fifo", "md5"}, {".", "md5"}, {"f", "md55"}, {"f", ""}}) {
        EXPECT_EQ(nv::crypto::computeFileHash((folder / name).string(), algorithm, error,
                                              CryptoEncoding::kHexLower),
                  "");
        EXPECT_TRUE(error) << name << ' ' << algorithm;
    }
}

void addMember(zip_t* archive, const char* name, const std::string& text, bool encrypted) {
    zip_source_t* source = zip_source_buffer(archive, text.data(), text.size(), 0);
    const auto index =
        static_cast<zip_uint64_t>(zip_file_add(archive, name, source, ZIP_FL_ENC_UTF_8));
    if (encrypted) zip_file_set_encryption(archive, index, ZIP_EM_AES_256, "secret");
}

TEST(ExpandZip, takesOneMemberOutWithinItsBounds) {
    const TemporaryFolder folder;
    const std::string file = (folder / "p.nvz").string();
    const std::string largest(kLimit, 'x');
    const std::string tooLarge(kLimit + 1, 'x');
    const std::string manifest = "<d/>";  // the archive reads its sources when it is closed
    zip_t* archive = zip_open(file.c_str(), ZIP_CREATE, nullptr);
    addMember(archive, "driver.xml", manifest, false);
    addMember(archive, "secret.xml", manifest, true);
    addMember(archive, "largest", largest, false);
    addMember(archive, "tooLarge", tooLarge, false);
    ASSERT_EQ(zip_close(archive), 0);

    std::string out = "before";
    std::string error;
    EXPECT_TRUE(nv::archive::expand_zip(file, "driver.xml", out, error)) << error;
    EXPECT_EQ(out, "<d/>");
    EXPECT_TRUE(nv::archive::expand_zip(file, "largest", out, error)) << error;

    out = "before";
    for (const char* member : {"absent", "Driver.xml", "secret.xml", "tooLarge"}) {
        error.clear();
        EXPECT_FALSE(nv::archive::expand_zip(file, member, out, error)) << member;
        EXPECT_NE(error, "") << member;
    }
    const std::string torn = contentOf(file).substr(0, 4000);
    for (const std::string& bad : {folder.write("torn", torn).string(), folder.path().string(),
                                   folder.write("empty", "").string(), file + ".absent"}) {
        error.clear();
        EXPECT_FALSE(nv::archive::expand_zip(bad, "driver.xml", out, error)) << bad;
        EXPECT_NE(error, "") << bad;
    }
    EXPECT_EQ(out, "before");
}

TEST(ExpandZip, refusesAMemberWhoseContentDoesNotMatchItsChecksum) {
    const TemporaryFolder folder;
    const std::string file = (folder / "p.nvz").string();
    const std::string text = "<driver>stored as it is</driver>";
    zip_t* archive = zip_open(file.c_str(), ZIP_CREATE, nullptr);
    addMember(archive, "driver.xml", text, false);
    zip_set_file_compression(archive, 0, ZIP_CM_STORE, 0);
    ASSERT_EQ(zip_close(archive), 0);
    std::string bytes = contentOf(file);
    bytes[bytes.find("stored")] ^= 1;
    std::string out;
    std::string error;
    EXPECT_FALSE(
        nv::archive::expand_zip(folder.write("bad", bytes).string(), "driver.xml", out, error));
    EXPECT_EQ(out, "");
}

}  // namespace
