#include "simulator/software/CodeSignature.h"

#include <Security/Security.h>
#include <openssl/cms.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "simulator/foundation/PropertyList.h"
#include "simulator/system/FileContent.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

using Memory = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using Message = std::unique_ptr<CMS_ContentInfo, Freed<CMS_ContentInfo_free>>;
using Store = std::unique_ptr<X509_STORE, Freed<X509_STORE_free>>;

constexpr unsigned int cmsFlags = CMS_DETACHED | CMS_BINARY | CMS_NOSMIMECAP;

// A status thrown through the steps of a check.
struct Failure {
  CodeStatus status;
};
[[noreturn]] void fail(CodeStatus status) { throw Failure{status}; }

// Where things are in a bundle.
struct Layout {
  explicit Layout(const fs::path& root)
      : bundle(root),
        contents(root / "Contents"),
        infoPlist(contents / "Info.plist"),
        seals(contents / "_CodeSignature") {}

  fs::path bundle, contents, infoPlist, seals;
  [[nodiscard]] fs::path directory() const { return seals / "CodeDirectory"; }
  [[nodiscard]] fs::path resources() const { return seals / "CodeResources"; }
  [[nodiscard]] fs::path requirements() const { return seals / "CodeRequirements"; }
  [[nodiscard]] fs::path signature() const { return seals / "CodeSignature"; }
};

std::string readOr(const fs::path& path, CodeStatus status) {
  try {
    return readFile(path);
  } catch (const std::system_error&) {
    fail(status);
  }
}

json infoDictionary(const Layout& layout, CodeStatus status) {
  try {
    json info = readPropertyList(readFile(layout.infoPlist));
    if (info.is_object()) return info;
  } catch (const std::exception&) {
  }
  fail(status);
}

std::string member(const json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : "";
}

// Every file and link of the bundle but those that the code directory covers itself, with what is sealed of it.
json sealedResources(const Layout& layout, const fs::path& executable) {
  json files = json::object();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(layout.contents)) {
    const fs::path& path = entry.path();
    if (path == layout.infoPlist || path == executable || path == layout.seals || path.parent_path() == layout.seals) {
      continue;
    }
    const std::string name = path.lexically_relative(layout.contents).string();
    if (entry.is_symlink())
      files[name] = {{"symlink", fs::read_symlink(path).string()}};
    else if (entry.is_regular_file())
      files[name] = {{"hash2", sha256(readFile(path))}};
    else if (!entry.is_directory())
      fail(errSecCSResourceNotSupported);
  }
  return {{"files2", files}};
}

Message signMessage(const std::string& content, const Identity& signer) {
  const Memory memory(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  Message message(CMS_sign(signer.certificate.get(), signer.key.get(), nullptr, memory.get(), cmsFlags));
  if (!message) throw std::runtime_error(std::string("CMS_sign: ") + ERR_error_string(ERR_get_error(), nullptr));
  return message;
}

std::string encode(CMS_ContentInfo* message) {
  const Memory memory(BIO_new(BIO_s_mem()));
  i2d_CMS_bio(memory.get(), message);
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

std::string subjectUnit(X509* certificate) {
  X509_NAME* const name = X509_get_subject_name(certificate);
  const int at = X509_NAME_get_index_by_NID(name, NID_organizationalUnitName, -1);
  if (at < 0) return "";
  const ASN1_STRING* const value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at));
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
          static_cast<std::size_t>(ASN1_STRING_length(value))};
}

// Whom a valid signature is from.
struct Signer {
  std::string unit;
  bool anchored;  // whether the certificate comes from the given authority
};

// The signer of the code directory; fails unless the signature is one of exactly that content.
Signer verifyMessage(const Layout& layout, const std::string& directory, X509* anchor) {
  const std::string bytes = readOr(layout.signature(), errSecCSUnsigned);
  const Memory memory(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  const Message message(d2i_CMS_bio(memory.get(), nullptr));
  if (!message) fail(errSecCSSignatureInvalid);

  const auto verify = [&](X509_STORE* store, unsigned int flags) {
    // Of memory alone OpenSSL makes a reader of its own, which it leaks when the digest is one that it does not know.
    BIO* const text = BIO_new_mem_buf(directory.data(), static_cast<int>(directory.size()));
    const Memory content(BIO_push(BIO_new(BIO_f_null()), text));
    const bool verified = CMS_verify(message.get(), nullptr, store, content.get(), nullptr, cmsFlags | flags) == 1;
    ERR_clear_error();
    return verified;
  };
  if (!verify(nullptr, CMS_NO_SIGNER_CERT_VERIFY)) fail(errSecCSSignatureFailed);
  const Store store(X509_STORE_new());
  X509_STORE_add_cert(store.get(), anchor);
  X509_STORE_set_purpose(store.get(), X509_PURPOSE_ANY);
  const bool anchored = verify(store.get(), 0);

  STACK_OF(X509)* const signers = CMS_get0_signers(message.get());
  if (sk_X509_num(signers) != 1) {
    sk_X509_free(signers);
    fail(errSecCSSignatureInvalid);
  }
  Signer signer{subjectUnit(sk_X509_value(signers, 0)), anchored};
  sk_X509_free(signers);
  return signer;
}

// The code directory, read before it is known to be genuine.
struct Directory {
  std::string content;
  json slots;
};

Directory readDirectory(const Layout& layout) {
  Directory directory{readOr(layout.directory(), errSecCSUnsigned), {}};
  directory.slots = json::parse(directory.content, nullptr, false);
  if (!directory.slots.is_object()) fail(errSecCSSignatureInvalid);
  return directory;
}

// Links may not lead out of the bundle.
bool staysInside(const fs::path& link, const fs::path& bundle) {
  const fs::path target = fs::read_symlink(link);
  if (target.is_absolute()) return false;
  const fs::path relative = (link.parent_path() / target).lexically_normal().lexically_relative(bundle);
  return !relative.empty() && *relative.begin() != "..";
}

void checkStructure(const Layout& layout, const fs::path& executable) {
  for (const fs::directory_entry& entry : fs::directory_iterator(layout.bundle)) {
    if (entry.path() != layout.contents) fail(errSecCSUnsealedAppRoot);
  }
  const std::set<fs::path> seals = {layout.directory(), layout.resources(), layout.requirements(), layout.signature()};
  for (const fs::directory_entry& entry : fs::directory_iterator(layout.seals)) {
    if (!seals.contains(entry.path())) fail(errSecCSUnsealedAppRoot);
  }
  if (fs::is_symlink(layout.infoPlist) || fs::is_symlink(executable)) fail(errSecCSRegularFile);
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(layout.contents)) {
    if (entry.is_symlink() && !staysInside(entry.path(), layout.bundle)) fail(errSecCSInvalidSymlink);
  }
}

fs::path mainExecutable(const Layout& layout, const json& info) {
  const std::string name = member(info, "CFBundleExecutable");
  if (name.empty()) fail(errSecCSNoMainExecutable);
  return layout.contents / "MacOS" / name;
}

// The digest of an executable's part for this Mac's architecture, and of what is for others.
struct ExecutableDigests {
  explicit ExecutableDigests(std::string_view content)
      : own(sha256(content.substr(0, content.find(otherArchitectures)))),
        others(sha256(content.substr(std::min(content.find(otherArchitectures), content.size())))) {}
  std::string own, others;
};

void checkAll(const Layout& layout, CheckDepth depth, const std::optional<CodeRequirement>& requirement, X509* anchor) {
  if (const CodeStatus status = CodeSigners::find(layout.bundle); status != 0) fail(status);
  const Directory directory = readDirectory(layout);
  const Signer signer = verifyMessage(layout, directory.content, anchor);

  const auto checkSlot = [&](const char* slot, const fs::path& file, CodeStatus status) {
    if (sha256(readOr(file, status)) != member(directory.slots, slot)) fail(status);
  };
  checkSlot("info", layout.infoPlist, errSecCSInfoPlistFailed);
  checkSlot("requirements", layout.requirements(), errSecCSSignatureFailed);
  checkSlot("resources", layout.resources(), errSecCSResourceDirectoryFailed);

  const json info = infoDictionary(layout, errSecCSInfoPlistFailed);
  const fs::path executable = mainExecutable(layout, info);
  if (depth.strict) checkStructure(layout, executable);
  if (!fs::exists(executable)) fail(errSecCSNoMainExecutable);
  const ExecutableDigests found(readOr(executable, errSecCSSignatureFailed));
  if (found.own != member(directory.slots, "executable")) fail(errSecCSSignatureFailed);
  if (depth.allArchitectures && found.others != member(directory.slots, "others")) fail(errSecCSSignatureFailed);

  json sealed;
  try {
    sealed = readPropertyList(readOr(layout.resources(), errSecCSResourcesInvalid));
  } catch (const std::runtime_error&) {
    fail(errSecCSResourcesInvalid);
  }
  if (sealed != sealedResources(layout, executable)) fail(errSecCSBadResource);

  if (!requirement) return;
  if (member(directory.slots, "identifier") != requirement->identifier) fail(errSecCSReqFailed);
  if (!requirement->team.empty() && (!signer.anchored || signer.unit != requirement->team)) fail(errSecCSReqFailed);
}

}  // namespace

std::string CodeRequirement::text() const {
  std::string result = "identifier \"" + identifier + "\"";
  if (!team.empty()) result += " and anchor apple generic and certificate leaf[subject.OU] = \"" + team + "\"";
  return result;
}

std::optional<CodeRequirement> CodeRequirement::parse(std::string_view text) {
  CodeRequirement result;
  const auto quoted = [&text](std::string_view before) -> std::optional<std::string> {
    if (!text.starts_with(before)) return std::nullopt;
    const std::size_t end = text.find('"', before.size());
    if (end == std::string_view::npos) return std::nullopt;
    std::string value(text.substr(before.size(), end - before.size()));
    text.remove_prefix(end + 1);
    return value;
  };
  const auto identifier = quoted("identifier \"");
  if (!identifier) return std::nullopt;
  result.identifier = *identifier;
  if (text.empty()) return result;
  const auto team = quoted(" and anchor apple generic and certificate leaf[subject.OU] = \"");
  if (!team || !text.empty()) return std::nullopt;
  result.team = *team;
  return result;
}

std::string teamIdentifier(std::string_view developer) {
  constexpr std::string_view alphabet = "ABCDEFGHJKLMNPQRSTUVWXYZ23456789";
  const std::string digest = sha256(developer);
  std::string team;
  for (std::size_t i = 0; i < 10; ++i) {
    team += alphabet[std::stoul(digest.substr(2 * i, 2), nullptr, 16) % alphabet.size()];
  }
  return team;
}

CodeSigners::CodeSigners()
    : anchor_(Subject{"Simulated Mac Root CA", "Simulated Mac", ""}),
      forger_(Subject{"Simulated Mac Root CA", "Simulated Mac", ""}) {}

void CodeSigners::sign(const fs::path& bundle, const std::string& developer, bool forged) {
  const std::string team = teamIdentifier(developer);
  const auto [entry, isNew] = developers_.try_emplace((forged ? "forged:" : "genuine:") + developer);
  if (isNew) {
    CertificateAuthority& authority = forged ? forger_ : anchor_;
    const std::string name = "Developer ID Application: " + developer.substr(0, 20) + " (" + team + ")";
    entry->second = authority.issue(Subject{name, developer.substr(0, 60), team}, Purpose::codeSigning);
  }

  const Layout layout(bundle);
  fs::remove_all(layout.seals);
  fs::create_directories(layout.seals);
  const json info = readPropertyList(readFile(layout.infoPlist));
  const fs::path executable = layout.contents / "MacOS" / info.at("CFBundleExecutable").get<std::string>();
  // As codesign does it, a bundle that does not say who it is goes by its program's name.
  const std::string identifier = info.value("CFBundleIdentifier", info.at("CFBundleExecutable").get<std::string>());
  writeFile(layout.resources(), writePropertyList(sealedResources(layout, executable)));
  writeFile(layout.requirements(), "designated => " + CodeRequirement{identifier, team}.text());
  const ExecutableDigests digests(readFile(executable));
  const json directory = {{"identifier", identifier},
                          {"team", team},
                          {"executable", digests.own},
                          {"others", digests.others},
                          {"info", sha256(readFile(layout.infoPlist))},
                          {"requirements", sha256(readFile(layout.requirements()))},
                          {"resources", sha256(readFile(layout.resources()))}};
  const std::string content = directory.dump(1);
  writeFile(layout.directory(), content);
  writeFile(layout.signature(), encode(signMessage(content, entry->second).get()));
}

CodeStatus CodeSigners::find(const fs::path& bundle) {
  std::error_code ignored;
  if (!fs::exists(bundle, ignored)) return errSecCSStaticCodeNotFound;
  if (!fs::is_directory(bundle, ignored)) return errSecSuccess;  // a file can be code, if unsigned
  if (!fs::exists(Layout(bundle).infoPlist, ignored)) return errSecCSBadBundleFormat;
  return errSecSuccess;
}

CodeStatus CodeSigners::check(const fs::path& bundle, CheckDepth depth,
                              const std::optional<CodeRequirement>& requirement) const {
  try {
    checkAll(Layout(bundle), depth, requirement, anchor_.certificate());
    return errSecSuccess;
  } catch (const Failure& failure) {
    return failure.status;
  } catch (const fs::filesystem_error&) {
    return errSecCSSignatureNotVerifiable;
  }
}

CodeStatus CodeSigners::designatedRequirement(const fs::path& bundle, CodeRequirement& result) const {
  try {
    const Layout layout(bundle);
    if (const CodeStatus status = find(bundle); status != 0) fail(status);
    const Directory directory = readDirectory(layout);
    const std::string text = readOr(layout.requirements(), errSecCSReqInvalid);
    if (sha256(text) != member(directory.slots, "requirements")) fail(errSecCSSignatureFailed);
    constexpr std::string_view prefix = "designated => ";
    const auto requirement =
        text.starts_with(prefix) ? CodeRequirement::parse(std::string_view(text).substr(prefix.size())) : std::nullopt;
    if (!requirement) fail(errSecCSReqInvalid);
    result = *requirement;
    return errSecSuccess;
  } catch (const Failure& failure) {
    return failure.status;
  }
}

}  // namespace simulator
