#include "kestrel/CDBException.h"

#include <utility>

CDBException::CDBException(std::string sqlState, std::string message, int nativeError)
    : sqlState_(std::move(sqlState)), message_(std::move(message)), nativeError_(nativeError) {}

CDBException::~CDBException() = default;

const char* CDBException::what() const noexcept { return message_.c_str(); }
