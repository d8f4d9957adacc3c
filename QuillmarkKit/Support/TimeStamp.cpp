#include "QuillmarkKit/Support/TimeStamp.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <ctime>
#include <memory>
#include <new>

#include "QuillmarkKit/Support/Release.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

using Request = std::unique_ptr<TS_REQ, Release<TS_REQ_free>>;
using Imprint = std::unique_ptr<TS_MSG_IMPRINT, Release<TS_MSG_IMPRINT_free>>;
using Response = std::unique_ptr<TS_RESP, Release<TS_RESP_free>>;
using Context = std::unique_ptr<TS_VERIFY_CTX, Release<TS_VERIFY_CTX_free>>;
using Store = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using ByteStream = std::unique_ptr<BIO, Release<BIO_free_all>>;
using X509Certificate = std::unique_ptr<X509, Release<X509_free>>;

template <typename Pointer>
Pointer made(typename Pointer::pointer object) {
    if (!object) throw std::bad_alloc();
    return Pointer(object);
}

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

std::optional<Date> dateOf(const ASN1_GENERALIZEDTIME* time) {
    std::tm parts = {};
    if (!time || ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
    return Date(std::chrono::seconds(timegm(&parts)));
}

std::string nameOf(TS_RESP* response) {
    PKCS7* token = TS_RESP_get_token(response);
    STACK_OF(X509)* signers = token ? PKCS7_get0_signers(token, nullptr, 0) : nullptr;
    std::string name;
    if (signers && sk_X509_num(signers) > 0) {
        X509_NAME* subject = X509_get_subject_name(sk_X509_value(signers, 0));
        for (const int part : {NID_commonName, NID_organizationName}) {
            const int place = X509_NAME_get_index_by_NID(subject, part, -1);
            if (place < 0 || !name.empty()) continue;
            unsigned char* text = nullptr;
            const int size =
                ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, place)));
            if (size > 0)
                name = repairedUTF8({reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)});
            OPENSSL_free(text);
        }
    }
    sk_X509_free(signers);
    return name;
}

/// The system's certificates, and these.
Store storeOf(const std::optional<std::string>& trusted, Date at) {
    Store store = made<Store>(X509_STORE_new());
    X509_STORE_set_default_paths(store.get());
    if (trusted) {
        const ByteStream text =
            made<ByteStream>(BIO_new_mem_buf(trusted->data(), static_cast<int>(trusted->size())));
        while (const X509Certificate one{PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr)})
            X509_STORE_add_cert(store.get(), one.get());
    }
    // It outlives the authority's certificate.
    X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(store.get()), std::chrono::system_clock::to_time_t(at));
    return store;
}

/// Whether everything that is asked for fits.
bool fits(TS_RESP* response, std::string_view digest, unsigned flags, Store store) {
    const Context context = made<Context>(TS_VERIFY_CTX_new());
    TS_VERIFY_CTX_set_flags(context.get(), static_cast<int>(flags));
    auto* imprint = static_cast<unsigned char*>(OPENSSL_memdup(digest.data(), digest.size()));
    if (!imprint) throw std::bad_alloc();
    TS_VERIFY_CTX_set_imprint(context.get(), imprint, static_cast<long>(digest.size()));
    if (store) TS_VERIFY_CTX_set_store(context.get(), store.release());
    const bool isFitting = TS_RESP_verify_response(context.get(), response) == 1;
    ERR_clear_error();
    return isFitting;
}

}  // namespace

std::string timeStampRequest(std::string_view digest) {
    const Request request = made<Request>(TS_REQ_new());
    const Imprint imprint = made<Imprint>(TS_MSG_IMPRINT_new());
    X509_ALGOR* algorithm = X509_ALGOR_new();
    if (!algorithm) throw std::bad_alloc();
    X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
    TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm);
    X509_ALGOR_free(algorithm);
    std::string copy(digest);
    TS_MSG_IMPRINT_set_msg(imprint.get(), bytesOf(copy), static_cast<int>(copy.size()));
    TS_REQ_set_version(request.get(), 1);
    TS_REQ_set_msg_imprint(request.get(), imprint.get());
    TS_REQ_set_cert_req(request.get(), 1);
    std::string bytes(static_cast<std::size_t>(i2d_TS_REQ(request.get(), nullptr)), '\0');
    unsigned char* end = bytesOf(bytes);
    i2d_TS_REQ(request.get(), &end);
    return bytes;
}

std::optional<TimeStamp> timeStamp(std::string_view reply, std::string_view digest,
                                   const std::optional<std::string>& trusted) {
    const auto* begin = reinterpret_cast<const unsigned char*>(reply.data());
    const Response response(d2i_TS_RESP(nullptr, &begin, static_cast<long>(reply.size())));
    ERR_clear_error();
    TS_TST_INFO* info = response ? TS_RESP_get_tst_info(response.get()) : nullptr;
    const auto at = info ? dateOf(TS_TST_INFO_get_time(info)) : std::nullopt;
    constexpr unsigned content = TS_VFY_VERSION | TS_VFY_IMPRINT;
    if (!at || !fits(response.get(), digest, content, nullptr)) return std::nullopt;
    return TimeStamp{*at, nameOf(response.get()),
                     fits(response.get(), digest, content | TS_VFY_SIGNATURE, storeOf(trusted, *at))};
}

}  // namespace quillmark
