// CardReadFile: the certificate files, for which the token is opened anew.
#include "harness/driver_test.h"

namespace orvane::test {
namespace {

struct CertificateCase {
  const char* name = "";
  const char* file = "";
  SCARDHANDLE cardHandle = kCardHandle;
  DWORD status = 0;
  Lines trace = {};                              // after the line with the file's name
  std::optional<Bytes> contents = std::nullopt;  // none: both outputs untouched
};

const OrvaneKeyPair kFirst = makeKey(1, 1);
const Lines kReopened = withHandle("orvane_initDevice(\"0012AB\", true, null)");

std::string find(std::uint8_t id) { return "orvane_findCertificateForKey(\"0012AB\", " + idOf(id) + ", null)"; }

std::string opening(const std::string& file) {
  const char* const kind = file.starts_with("ksc") ? "sig-cert" : "kx-cert";
  return std::string("D === CardReadFile ") + kind + ": serial=[0012AB] file=" + file;
}

Bytes contentsOf(std::uint8_t first, std::uint32_t length) {
  const OrvaneCertificate certificate = makeCertificate(first, length);
  return Bytes(certificate.certData, certificate.certData + length);
}

class ReadCertificateTest : public DriverTest {
 protected:
  // A token with two keys that have certificates, and one without.
  CARD_DATA& openCertificates() {
    CARD_DATA& record = open({kFirst, makeKey(2, 2), makeKey(3, 3)});
    setCertificate(kSerial, kFirst, makeCertificate(0x30, 700));
    setCertificate(kSerial, makeKey(2, 2), makeCertificate(0x40, 3072));
    return record;
  }

  void run(CARD_DATA& record, const CertificateCase& row) {
    BYTE untouched = kPoison;
    PBYTE data = &untouched;
    DWORD size = kPoison32;
    record.hScard = row.cardHandle;
    const Outcome outcome =
        observe([&] { return record.pfnCardReadFile(&record, nullptr, const_cast<LPSTR>(row.file), 0, &data, &size); });
    const Lines begin = {"D CardReadFile :: LOG_FUNCTION_NAME = Entry",
                         std::string("D CardReadFile filename: ") + row.file};
    EXPECT_EQ(outcome, (Outcome{row.status, concat(begin, row.trace)}));
    if (row.contents) {
      ASSERT_NE(data, &untouched);
      ASSERT_EQ(size, row.contents->size());
      EXPECT_EQ(takeBuffer(data, size), *row.contents);
    } else {
      EXPECT_EQ(data, &untouched);
      EXPECT_EQ(size, kPoison32);
    }
    EXPECT_EQ(untouched, kPoison);
  }

  CertificateCase success(const char* file, std::uint8_t id, const Bytes& contents, const Lines& reopened = kReopened) {
    return {.name = file,
            .file = file,
            .trace = inOrder(reopened, opening(file), find(id), alloc(contents.size()),
                             "D CardReadFile: returned key exchange cert length=" + std::to_string(contents.size())),
            .contents = contents};
  }
};

TEST_F(ReadCertificateTest, ChoosesTheContainerByNumber) {
  CARD_DATA& record = openCertificates();
  const Bytes first = contentsOf(0x30, 700);
  const Bytes second = contentsOf(0x40, 3072);
  for (const char* const file : {"ksc0", "kxc0", "ksc00", "kxc00", "ksc", "kxc", "kscabc", "kxc-0", "ksc+0", "kxc 0",
                                 "ksc0x1", "kxc\t0", "ksc.1", "kxc- 1", "ksc--1"}) {
    SCOPED_TRACE(file);
    run(record, success(file, 1, first));
  }
  for (const char* const file :
       {"ksc1", "kxc1", "ksc01", "kxc0000000000000000000001", "ksc+1", "kxc 1", "ksc1abc", "kxc1-1", "ksc1 2"}) {
    SCOPED_TRACE(file);
    run(record, success(file, 2, second));
  }
}

TEST_F(ReadCertificateTest, RefusesNumbersWithoutAContainer) {
  CARD_DATA& record = openCertificates();
  for (const char* const file : {"ksc3", "kxc3", "ksc-1", "kxc-1", "ksc10", "kxc255", "ksc256", "kxc2147483647",
                                 "ksc2147483648", "kxc4294967295", "ksc4294967296", "kxc4294967297", "ksc-4294967296",
                                 "kxc18446744073709551616", "ksc99999999999999999999999999"}) {
    SCOPED_TRACE(file);
    run(record, {.file = file,
                 .status = code(SCARD_E_FILE_NOT_FOUND),
                 .trace = inOrder(kReopened, opening(file), "E CardReadFile: invalid container index for kx cert")});
  }
}

TEST_F(ReadCertificateTest, RefusesContainersWithoutKeyOrCertificate) {
  CARD_DATA& record = openCertificates();
  for (const char* const file : {"ksc2", "kxc2"}) {
    SCOPED_TRACE(file);
    run(record,
        {.file = file,
         .status = code(SCARD_E_NO_KEY_CONTAINER),
         .trace = inOrder(kReopened, opening(file), find(3), "E CardReadFile: no matching key exchange cert found")});
  }
  setKeys(record, 1, {});
  for (const char* const file : {"ksc1", "kxc1"}) {
    SCOPED_TRACE(file);
    run(record, {.file = file,
                 .status = code(SCARD_E_NO_KEY_CONTAINER),
                 .trace = inOrder(kReopened, opening(file), "E CardReadFile: container has no keys")});
  }
}

TEST_F(ReadCertificateTest, OpensTheDeviceFirst) {
  CARD_DATA& record = openCertificates();
  for (const char* const file : {"ksc0", "kxc0", "ksc9"}) {
    for (const int result : {5, -7}) {
      SCOPED_TRACE(file);
      queueResult("orvane_initDevice", result);
      run(record, {.file = file,
                   .status = 2,
                   .trace = inOrder(kReopened, "E Init device in get certificate failed : " + std::to_string(result))});
    }
  }
  CertificateCase row =
      success("ksc0", 1, contentsOf(0x30, 700), withoutHandle("orvane_initDevice(\"0012AB\", true, null)"));
  row.cardHandle = 0;
  run(record, row);
}

TEST_F(ReadCertificateTest, LengthOfTheCertificate) {
  CARD_DATA& record = openCertificates();
  setCertificate(kSerial, kFirst, makeCertificate(1, 0));
  run(record, success("ksc0", 1, Bytes()));
  setCertificate(kSerial, kFirst, makeCertificate(1, 1));
  run(record, success("kxc0", 1, contentsOf(1, 1)));
  // A record that states more than it holds.
  OrvaneCertificate tooLong = makeCertificate(1, 3072);
  tooLong.certLength = 3073;
  setCertificate(kSerial, kFirst, tooLong);
  run(record,
      {.file = "ksc0",
       .status = code(SCARD_E_NO_KEY_CONTAINER),
       .trace = inOrder(kReopened, opening("ksc0"), find(1), "E CardReadFile: no matching key exchange cert found")});
}

TEST_F(ReadCertificateTest, NoMemory) {
  CARD_DATA& record = openCertificates();
  for (const char* const file : {"ksc0", "kxc0"}) {
    SCOPED_TRACE(file);
    const auto failed = [&](const Lines& request) {
      return CertificateCase{.file = file,
                             .status = code(SCARD_E_NO_MEMORY),
                             .trace = inOrder(kReopened, opening(file), find(1), request,
                                              "E CardReadFile: allocation failed for kx cert")};
    };
    failAllocationsAfter(0);
    run(record, failed({refusedAlloc(700)}));
    failAllocationsAfter(std::nullopt);
    const auto allocator = record.pfnCspAlloc;
    record.pfnCspAlloc = nullptr;
    run(record, failed({}));
    record.pfnCspAlloc = allocator;
  }
}

// An allocator may answer a request for 0 bytes with null: an empty certificate is a result all the same.
TEST_F(ReadCertificateTest, EmptyCertificateWithoutMemory) {
  CARD_DATA& record = openCertificates();
  setCertificate(kSerial, kFirst, makeCertificate(1, 0));
  char file[] = "ksc0";
  char directory[] = "mscp";
  int poison = 0;
  auto* data = reinterpret_cast<PBYTE>(&poison);
  DWORD size = kPoison32;
  failAllocationsAfter(0);
  const Outcome outcome = observe([&] { return record.pfnCardReadFile(&record, directory, file, 0, &data, &size); });
  failAllocationsAfter(std::nullopt);
  EXPECT_EQ(outcome, (Outcome{0, inOrder("D CardReadFile :: LOG_FUNCTION_NAME = Entry", "D CardReadFile filename: ksc0",
                                         kReopened, opening("ksc0"), find(1), refusedAlloc(0),
                                         "D CardReadFile: returned key exchange cert length=0")}));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0u);
}

TEST_F(ReadCertificateTest, ReadsTheCardHandleAtEachCall) {
  CARD_DATA& record = openCertificates();
  CertificateCase row =
      success("ksc0", 1, contentsOf(0x30, 700),
              {"orvane_setExternalSmartcardHandle(0xBEEF)", "orvane_initDevice(\"0012AB\", true, null) [card 0xBEEF]",
               "orvane_clearExternalSmartcardHandle() [card 0xBEEF]"});
  row.cardHandle = 0xBEEF;
  run(record, row);
}

}  // namespace
}  // namespace orvane::test
