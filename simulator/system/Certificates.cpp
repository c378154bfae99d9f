#include "simulator/system/Certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <stdexcept>

namespace simulator {
namespace {

using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Freed<BIO_free_all>>;

constexpr long secondsPerDay = 86400;

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + ERR_error_string(ERR_get_error(), nullptr));
}

Key makeKey() {
  Key key(EVP_EC_gen("P-256"));
  if (!key) fail("EVP_EC_gen");
  return key;
}

void addName(X509_NAME* name, const char* field, const std::string& value) {
  if (value.empty()) return;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(value.data());
  if (X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, bytes, static_cast<int>(value.size()), -1, 0) != 1) {
    fail("X509_NAME_add_entry_by_txt");
  }
}

// A certificate of `key`, complete but for issuer, extensions and signature.
Certificate makeCertificate(const Subject& subject, EVP_PKEY* key, long serial, Validity validity) {
  Certificate certificate(X509_new());
  if (!certificate) fail("X509_new");
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
  const long age = validity == Validity::expired ? 400 : 1;
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -age * secondsPerDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), (365 - age) * secondsPerDay);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME* const name = X509_get_subject_name(certificate.get());
  addName(name, "O", subject.organization);
  addName(name, "OU", subject.unit);
  addName(name, "CN", subject.commonName);
  return certificate;
}

void addExtension(X509* certificate, X509* issuer, int which, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, which, value.c_str()));
  if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) fail("X509V3_EXT_conf_nid");
}

}  // namespace

CertificateAuthority::CertificateAuthority(const Subject& subject) {
  own_.key = makeKey();
  own_.certificate = makeCertificate(subject, own_.key.get(), serial_++, Validity::current);
  X509* const certificate = own_.certificate.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
  if (X509_sign(certificate, own_.key.get(), EVP_sha256()) == 0) fail("X509_sign");
}

Identity CertificateAuthority::issue(const Subject& subject, Purpose purpose, Validity validity) {
  Identity identity{makeKey(), nullptr};
  identity.certificate = makeCertificate(subject, identity.key.get(), serial_++, validity);
  X509* const certificate = identity.certificate.get();
  X509* const issuer = own_.certificate.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
  addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
  addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
  if (purpose == Purpose::server) {
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, issuer, NID_subject_alt_name, "DNS:" + subject.commonName);
  } else {
    addExtension(certificate, issuer, NID_ext_key_usage, "codeSigning");
  }
  if (X509_sign(certificate, own_.key.get(), EVP_sha256()) == 0) fail("X509_sign");
  return identity;
}

std::string CertificateAuthority::pem() const {
  const Memory memory(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(memory.get(), own_.certificate.get());
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

std::string sha256(std::string_view content) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(content.data(), content.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) fail("EVP_Digest");
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex += digits[digest.at(i) >> 4];
    hex += digits[digest.at(i) & 0xf];
  }
  return hex;
}

}  // namespace simulator
