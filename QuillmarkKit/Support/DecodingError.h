#pragma once

#include <stdexcept>

namespace quillmark {

/// Why something serialized cannot be read; the text begins with the place of the fault:
/// "reports[1].dkim[0].status: Invalid number of keys found, expected one."
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace quillmark
