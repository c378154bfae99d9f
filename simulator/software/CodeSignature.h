// Code signatures of application bundles.
//
// A signed bundle carries Contents/_CodeSignature with four files, as bundles whose main executable cannot hold a
// signature itself do:
//   CodeResources     a property list that seals every other file of the bundle by digest or link target
//   CodeRequirements  the designated requirement, in the language of code requirements
//   CodeDirectory     identifier and team, and the digests of main executable (one for this Mac's architecture and one
//                     for the others), Info.plist and the two files above
//   CodeSignature     a detached CMS signature over the code directory, with the signer's certificate
// Whatever is changed, added or missing therefore breaks a digest, and a digest cannot be set right without the key.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/system/Certificates.h"

namespace simulator {

// The statuses that checking a signature ends with (CSCommon.h), 0 for success.
using CodeStatus = std::int32_t;

// A code requirement: a conjunction of the terms that developers' designated requirements consist of.
struct CodeRequirement {
  std::string identifier;  // identifier "…"
  std::string team;        // certificate leaf[subject.OU] = "…"; with it goes: anchor apple generic
  friend bool operator==(const CodeRequirement&, const CodeRequirement&) = default;

  [[nodiscard]] std::string text() const;
  // None when the text is not understood.
  static std::optional<CodeRequirement> parse(std::string_view text);
};

// How far a check goes: whether the rules for the bundle's root and its links are kept to, and whether the parts of the
// main executable for other architectures than this Mac's are looked at.
struct CheckDepth {
  bool strict = true;
  bool allArchitectures = true;
};

// The line with which an executable's parts for other architectures begin.
inline constexpr std::string_view otherArchitectures = "\n[other architectures]\n";

// The authority behind developers' certificates, and the developers.
class CodeSigners {
 public:
  CodeSigners();

  // Signs the bundle as the developer of that name, who gets a certificate when first named. With `forged` the
  // certificate says the same but comes from an authority of the forger's own.
  void sign(const std::filesystem::path& bundle, const std::string& developer, bool forged = false);

  // Whether the bundle's signature is valid, and whether it satisfies the requirement, if there is one.
  [[nodiscard]] CodeStatus check(const std::filesystem::path& bundle, CheckDepth depth,
                                 const std::optional<CodeRequirement>& requirement) const;
  // The designated requirement that the bundle's signature states; only its integrity is checked.
  [[nodiscard]] CodeStatus designatedRequirement(const std::filesystem::path& bundle, CodeRequirement& result) const;
  // The authority that this Mac trusts.
  [[nodiscard]] const CertificateAuthority& authority() const { return anchor_; }
  // Whether code can be there at all.
  [[nodiscard]] static CodeStatus find(const std::filesystem::path& bundle);

 private:
  CertificateAuthority anchor_;
  CertificateAuthority forger_;
  std::map<std::string, Identity> developers_;
};

// Ten characters that identify a developer, derived from the name.
std::string teamIdentifier(std::string_view developer);

}  // namespace simulator
