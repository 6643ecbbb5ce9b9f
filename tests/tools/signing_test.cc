// The signing helpers of the tool: the PKCS #11 URI (RFC 7512), a token's ECDSA r||s turned into the DER
// ECDSA-Sig-Value (expected bytes derived from X.690 and checked with `openssl asn1parse`), and the output
// writer's rule that a file appears whole or not at all, and the --time the signer is given.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "cli/signing_time.h"
#include "signing/output_file.h"
#include "signing/pkcs11_signer.h"
#include "signing/pkcs11_uri.h"

namespace {

Bytes fromHex(const std::string& hex) {
  Bytes out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

TEST(Pkcs11Uri, ParsesTheAttributesItKnows) {
  // The URI, then token, object, id (hex) and pin-value as parsed.
  const struct { const char *text, *token, *object, *id, *pin; } cases[] = {
      {"pkcs11:token=demo;object=rsa?pin-value=1234", "demo", "rsa", "", "1234"},
      {"pkcs11:token=my%20token;id=%01%aB", "my token", "", "01ab", ""},
      {"pkcs11:object=a%3bb;type=private", "", "a;b", "", ""},
      {"pkcs11:id=%00", "", "", "00", ""},
  };
  for (const auto& c : cases) {
    Pkcs11Uri uri;
    std::string error;
    ASSERT_TRUE(parsePkcs11Uri(c.text, uri, error)) << c.text << ": " << error;
    EXPECT_EQ(uri.token, c.token) << c.text;
    EXPECT_EQ(uri.object, c.object) << c.text;
    EXPECT_EQ(uri.hasId, *c.id != '\0') << c.text;
    EXPECT_EQ(uri.id, fromHex(c.id)) << c.text;
    EXPECT_EQ(uri.hasPinValue, *c.pin != '\0') << c.text;
    EXPECT_EQ(uri.pinValue, c.pin) << c.text;
  }
}

TEST(Pkcs11Uri, RefusesWithTheReason) {
  const std::pair<const char*, const char*> cases[] = {
      {"pkcs12:object=a", "a PKCS#11 URI starts with pkcs11:"},
      {"pkcs11:token=demo", "the PKCS#11 URI names no key (object= or id=)"},
      {"pkcs11:object=a;object=b", "the PKCS#11 URI gives object twice"},
      {"pkcs11:object=a?pin-value=1&pin-source=p", "the PKCS#11 URI gives both pin-value and pin-source"},
      {"pkcs11:id=%0g", "bad %-escape in the PKCS#11 URI attribute id"},
      {"pkcs11:id=%0", "bad %-escape in the PKCS#11 URI attribute id"},
      {"pkcs11:object=a%", "bad %-escape in the PKCS#11 URI attribute object"},
      {"pkcs11:model=x;object=a", "the PKCS#11 URI attribute model is not supported here"},
      // Query attributes in the path and path attributes in the query are unknown there.
      {"pkcs11:object=a;pin-value=1", "the PKCS#11 URI attribute pin-value is not supported here"},
      {"pkcs11:?object=a", "the PKCS#11 URI attribute object is not supported here"},
      {"pkcs11:object=a;type=cert", "the PKCS#11 URI names a cert object; only a private key signs"},
      {"pkcs11:object", "malformed attribute 'object' in the PKCS#11 URI"},
      {"pkcs11:object=a;", "malformed attribute '' in the PKCS#11 URI"},
  };
  for (const auto& [text, expected] : cases) {
    Pkcs11Uri uri;
    std::string error;
    EXPECT_FALSE(parsePkcs11Uri(text, uri, error)) << text;
    EXPECT_EQ(error, expected) << text;
  }
}

TEST(Pkcs11Uri, PinSourceIsTheFirstLineOfAFileOrFileUri) {
  const std::string path = testing::TempDir() + "pin_source.txt";
  std::ofstream(path) << "4321\r\nsecond line\n";
  for (const std::string& source : {path, "file:" + path, "file://" + path}) {
    std::string pin;
    std::string error;
    EXPECT_TRUE(readPinSource(source, pin, error)) << source << ": " << error;
    EXPECT_EQ(pin, "4321") << source;
  }
  std::string pin;
  std::string error;
  EXPECT_FALSE(readPinSource(path + ".missing", pin, error));
  EXPECT_EQ(error, "cannot read the PIN from " + path + ".missing");
  std::remove(path.c_str());
}

TEST(EcdsaSigValue, RawHalvesBecomeMinimalIntegers) {
  // r||s in hex, and the DER (empty: refused).
  const struct { const char *what, *raw, *der; } cases[] = {
      {"leading zeros dropped", "0000000100000002", "3006020101020102"},
      {"zero is one octet", "00000000", "3006020100020100"},
      {"high bit gets a zero octet", "800000007fffffff", "300d0205008000000002047fffffff"},
      {"empty", "", ""},
      {"odd size", "010203", ""},
  };
  for (const auto& c : cases) {
    Bytes der;
    EXPECT_EQ(ecdsaSigValue(fromHex(c.raw), der), *c.der != '\0') << c.what;
    EXPECT_EQ(der, fromHex(c.der)) << c.what;
  }
}

// Each case in a folder of its own under the test's temporary folder.
class OutputFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "output_file_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern + "/";
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string path(const char* name) const { return dir_ + name; }
  void put(const char* name, const std::string& text) const { std::ofstream(path(name)) << text; }
  std::string read(const char* name) const {
    std::ifstream in(path(name));
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  size_t entries() const {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir_), {}));
  }
  bool write(const char* name, const char* input, const std::string& text, bool force, std::string& error) const {
    return writeOutputFile(path(name), input == nullptr ? "" : path(input), text.data(), text.size(), force, error);
  }

  std::string dir_;
};

TEST_F(OutputFile, RefusesTheInputUnderAnyNameEvenWithForce) {
  put("in.pdf", "input");
  ASSERT_EQ(link(path("in.pdf").c_str(), path("hard.pdf").c_str()), 0);
  ASSERT_EQ(symlink("in.pdf", path("sym.pdf").c_str()), 0);
  for (const char* output : {"in.pdf", "./in.pdf", "hard.pdf", "sym.pdf"}) {
    for (bool force : {false, true}) {
      std::string error;
      EXPECT_FALSE(write(output, "in.pdf", "signed", force, error)) << output;
      EXPECT_EQ(error, path(output) + " is the input " + path("in.pdf") + " itself") << output;
    }
  }
  EXPECT_EQ(read("in.pdf"), "input");
  EXPECT_EQ(entries(), 3u);
}

TEST_F(OutputFile, AFailedFillLeavesNothingBehind) {
  put("kept.p7s", "old");
  const FileFiller halfThenFail = [](int fd, std::string&) {
    EXPECT_EQ(::write(fd, "half", 4), 4);
    errno = ENOSPC;
    return false;
  };
  const FileFiller ownFault = [](int, std::string& error) {
    error = "in.txt: changed while read";
    return false;
  };
  std::string error;
  EXPECT_FALSE(writeOutputFile(path("new.p7s"), "", halfThenFail, false, error));
  EXPECT_EQ(error, "cannot write " + path("new.p7s") + ": No space left on device");
  EXPECT_FALSE(writeOutputFile(path("kept.p7s"), "", ownFault, true, error));
  EXPECT_EQ(error, "in.txt: changed while read");
  EXPECT_EQ(read("kept.p7s"), "old");
  EXPECT_EQ(entries(), 1u);  // no temporary file, no new.p7s
}

TEST_F(OutputFile, PiecesArriveWholeInAFolderThatExistsNotOverAFolder) {
  const FileFiller pieces = [](int fd, std::string&) {
    return ::write(fd, "ab", 2) == 2 && ::write(fd, "cd", 2) == 2;
  };
  std::string error;
  ASSERT_TRUE(writeOutputFile(path("out.bin"), "", pieces, false, error)) << error;
  EXPECT_EQ(read("out.bin"), "abcd");
  EXPECT_FALSE(write("missing/out.bin", nullptr, "x", false, error));
  EXPECT_EQ(error, "cannot write " + path("missing/out.bin") + ": No such file or directory");
  ASSERT_EQ(mkdir(path("dir").c_str(), 0700), 0);
  EXPECT_FALSE(write("dir", nullptr, "x", true, error));
  EXPECT_EQ(error, path("dir") + ": is a directory");
}

}  // namespace

// A name that appears while the content is written: refused without replace, never overwritten, and
// replaced with it (by the step that names the new file, so a check beforehand could not see it).
TEST_F(OutputFile, ANameThatAppearsDuringTheWriteIsRefusedOrReplaced) {
  for (bool replace : {false, true}) {
    const std::string name = replace ? "replaced.p7s" : "refused.p7s";
    const FileFiller appearing = [this, &name](int fd, std::string&) {
      put(name.c_str(), "appeared");
      return ::write(fd, "new", 3) == 3;
    };
    std::string error;
    EXPECT_EQ(writeFileThrough(path(name.c_str()), replace, appearing, error), replace) << error;
    EXPECT_EQ(error, replace ? "" : path(name.c_str()) + " exists (--force replaces it)");
    EXPECT_EQ(read(name.c_str()), replace ? "new" : "appeared");
  }
  EXPECT_EQ(entries(), 2u);  // no temporary file
}

// An output gets the mode a plain create gives under the umask: 0664 under 002, which neither a create
// mode of 0600 or 0644 nor an ignored umask gives.
TEST_F(OutputFile, TheModeIsWhatTheUmaskLeaves) {
  const mode_t saved = umask(002);
  std::string error;
  const bool written = write("out.p7s", nullptr, "x", false, error);
  umask(saved);
  struct stat st;
  ASSERT_TRUE(written && stat(path("out.p7s").c_str(), &st) == 0) << error;
  EXPECT_EQ(st.st_mode & 0777, 0664u);
}

TEST(SigningTime, TheCalendarAndTheUtcTimeCentury) {
  // The text, the problem (empty: accepted) and the long form.
  const struct { const char *text, *problem, *longForm; } cases[] = {
      {"20241301000000Z", "month 13", ""},
      {"20240001000000Z", "month 0", ""},
      {"20240230256199Z", "day 30 of February 2024", ""},
      {"20230229120000Z", "day 29 of February 2023", ""},
      {"19000229120000Z", "day 29 of February 1900", ""},
      {"20240431000000Z", "day 31 of April 2024", ""},
      {"20240100000000Z", "day 0 of January 2024", ""},
      {"20240101240000Z", "hour 24", ""},
      {"20240101236000Z", "minute 60", ""},
      {"20240101235960Z", "second 60", ""},
      {"241301000000Z", "month 13", ""},
      {"2024010112000Z", "not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ", ""},
      {"20240101120000", "not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ", ""},
      {"2024010112000+Z", "not YYYYMMDDhhmmssZ or YYMMDDhhmmssZ", ""},
      {"20240229120000Z", "", "20240229120000Z"},
      {"20000229120000Z", "", "20000229120000Z"},
      {"20241231235959Z", "", "20241231235959Z"},
      {"491231235959Z", "", "20491231235959Z"},
      {"500101000000Z", "", "19500101000000Z"},
  };
  for (const auto& c : cases) {
    std::string longForm;
    EXPECT_EQ(readSigningTime(c.text, longForm), c.problem) << c.text;
    if (*c.problem == '\0') {
      EXPECT_EQ(longForm, c.longForm) << c.text;
    }
  }
}
