#include "Wording/Findings.h"

namespace quillmark {

std::string label(DKIMResult::Status status, const Reader& reader) {
    switch (status) {
        case DKIMResult::Status::pass:
            return reader.translate("Valid");
        case DKIMResult::Status::bodyChanged:
            return reader.translate("Body changed");
        case DKIMResult::Status::headersChanged:
            return reader.translate("Headers changed");
        case DKIMResult::Status::keyNotPublished:
            return reader.translate("Key no longer published");
        case DKIMResult::Status::keyRevoked:
            return reader.translate("Key withdrawn");
        case DKIMResult::Status::keyUnusable:
            return reader.translate("Key can’t be used");
        case DKIMResult::Status::keyTooWeak:
            return reader.translate("Key too weak");
        case DKIMResult::Status::lookupFailed:
            return reader.translate("Lookup failed");
        case DKIMResult::Status::unsupportedAlgorithm:
            return reader.translate("Unsupported algorithm");
        case DKIMResult::Status::malformed:
            break;
    }
    return reader.translate("Not a valid signature");
}

Tone tone(const DKIMResult& result) {
    switch (result.status) {
        case DKIMResult::Status::pass:
            return result.bodyChecked ? Tone::good : Tone::caution;
        case DKIMResult::Status::bodyChanged:
        case DKIMResult::Status::headersChanged:
        case DKIMResult::Status::keyTooWeak:
        case DKIMResult::Status::malformed:
            return Tone::bad;
        default:
            return Tone::unknown;
    }
}

}  // namespace quillmark
