// The library's exception: raised only by allocation failures.
#ifndef QOR_TW_EXCEPTION_H
#define QOR_TW_EXCEPTION_H

#include <exception>
#include <string>

namespace qor {

class tw_exception : public std::exception {
public:
    explicit tw_exception(std::string message) : message_(std::move(message)) {}
    ~tw_exception() override = default;
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

}  // namespace qor

#endif
