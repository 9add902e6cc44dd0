#include "standins/string_cipher_class.h"

#include "standins/string_cipher.h"

namespace standins {

StringCipherClass::StringCipherClass() : DispatchBase("StringCipher") {
    method(kStringCipherFirstMethod, 1, [](Args a) { return Variant(encryptString(a[0].value.toString())); });
}

}  // namespace standins
