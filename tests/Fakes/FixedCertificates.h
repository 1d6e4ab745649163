#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Certificates as Base64 text, for tests of what is done with any: the same on every system, and no library
/// has to make them. Nobody has the keys.
namespace Ombry::Tests::FixedCertificates {

/// Of a server with an RSA key.
inline constexpr const char* RsaCertificate =
    "MIICzjCCAbagAwIBAgIBATANBgkqhkiG9w0BAQsFADAWMRQwEgYDVQQDDAtzZXJ2ZXIudGVzdDAgFw0yNjExMjEwOTE0NThaGA8y"
    "MDU2MTExNDA5MTQ1OFowFjEUMBIGA1UEAwwLc2VydmVyLnRlc3QwggEiMA0GCSqGSIb3DQEBAQUAA4IBDwAwggEKAoIBAQCmNPRY"
    "YXAffu1r2FjBnzLYTnHxjXrYGXx82YeRiNbJ+M71v6tdZTTCbxQl+gIDOn5j5godY72BH708E7tsWMISn06MMDu7iqhncRzA9SOo"
    "unG2+BCeeGF/7LFKYxD5Yr/ZRwl6FqzsY0qucz7pCqOa1zB7kfERk2B7tDT+m7oLPNUFeNjKj/WtuBNfZcKoA6bOWQ2+Jiazv8ww"
    "9jfwoTeAwB3SK3cF1GW9DX58WEAD+v4tUHKZf+UEsYtFUvjKYX6eWi1WvioF2s754qtsQMGzqXXnjITQCbNsz3ZAPuZW4JdI2g80"
    "SlMXqr5jIajHyUXpErn/onWf8kBkPh1OIg9vAgMBAAGjJTAjMAkGA1UdEwQCMAAwFgYDVR0RBA8wDYILc2VydmVyLnRlc3QwDQYJ"
    "KoZIhvcNAQELBQADggEBAFkESwskQ44QNyjVlxqynKQxlbUIONxLrG80owrpdvkfblyiFM7Kpn8N+LpkQ5KR81rbib/qYfX4gwDv"
    "hxywg8fe6If/c7LKl18oFoGb9dHfze92Ii9D6BQG6xRxRNxV1/TcCyipAyAwXqYQqb7putLMDrmuogT3ndcgXESO77wTaT/pKJOt"
    "DSzhjJqx+K56rJ9tmH5q1nbjNJ1VWAYswEnfcAxo6Fjr0WYp1E0wrGVlXFqEwsGIcgfcpuAZTkpp6RpefFXIL8Ecv8Q4c3KiC3Tq"
    "Rvn9XyGfXiiyWCBoMIVai3g362r/fYq6sgsD4keJ82nTVH2xusZdNChouxRoqSI=";

/// The same key under other names, another issuer and another number; its time is over.
inline constexpr const char* RenewedRsaCertificate =
    "MIICzjCCAbagAwIBAgICA+kwDQYJKoZIhvcNAQELBQAwGTEXMBUGA1UEAwwOVGVzdCBhdXRob3JpdHkwHhcNMjYwODE0MDkxNTAx"
    "WhcNMjYxMTIxMDkxNTAxWjAVMRMwEQYDVQQDDApvdGhlci50ZXN0MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEApjT0"
    "WGFwH37ta9hYwZ8y2E5x8Y162Bl8fNmHkYjWyfjO9b+rXWU0wm8UJfoCAzp+Y+YKHWO9gR+9PBO7bFjCEp9OjDA7u4qoZ3EcwPUj"
    "qLpxtvgQnnhhf+yxSmMQ+WK/2UcJehas7GNKrnM+6Qqjmtcwe5HxEZNge7Q0/pu6CzzVBXjYyo/1rbgTX2XCqAOmzlkNviYms7/M"
    "MPY38KE3gMAd0it3BdRlvQ1+fFhAA/r+LVBymX/lBLGLRVL4ymF+nlotVr4qBdrO+eKrbEDBs6l154yE0AmzbM92QD7mVuCXSNoP"
    "NEpTF6q+YyGox8lF6RK5/6J1n/JAZD4dTiIPbwIDAQABoyQwIjAJBgNVHRMEAjAAMBUGA1UdEQQOMAyCCm90aGVyLnRlc3QwDQYJ"
    "KoZIhvcNAQELBQADggEBABWua7/fXleRZaLKrtn/P0ah3rPH/n0koZ1KsbvUAqFQEIWQ31BuoWPDW5UkT0TmL23/OCjbJWEMfD13"
    "GWMVfm4u7A4NqjKNHUprAO6N7NoVJCEcN5kqA9Yr6nE177L7U5KQqrrdrw7fM5lvVQWMuTSrZr0/wI1RFmAXyu/DqoSnTaHCYB/t"
    "lXlnmQ4JIE9cPfJSEkKDbK/MbImtuEZGAnHJ8tfnKfuztbN/NVixiIW20opa+Ak25PPA82DS3mj4MFKQQt54MRSOEpJpUdRCgwQF"
    "DiSAG1c9QGpaL/IjDoYlgOHIninEfToNPl7SholRA0e9spB/BA0e+xck1V+jE1A=";

/// The same names with another RSA key.
inline constexpr const char* OtherRsaCertificate =
    "MIICzjCCAbagAwIBAgIBATANBgkqhkiG9w0BAQsFADAWMRQwEgYDVQQDDAtzZXJ2ZXIudGVzdDAgFw0yNjExMjEwOTE1MDRaGA8y"
    "MDU2MTExNDA5MTUwNFowFjEUMBIGA1UEAwwLc2VydmVyLnRlc3QwggEiMA0GCSqGSIb3DQEBAQUAA4IBDwAwggEKAoIBAQCPv2yM"
    "sSJb4E/udSo4E7Gst5mz7IF2GRliHD7rRCyC85tP3hceWTOBpl2jlSLSJIzdzxJkg0hef7/uE0+Z0zBWTlLPtr4h3CCP6GmE/Ac2"
    "Xxp0UmMmRfOrlgletS2+zoN4K9RcXeN86yhI4SfrqqAnIPU5mcb5jbviZcqaqeGCqq9lz/r2ogwiOeYjuf+vJAs0HOzlrs4X+1LH"
    "YWGREOhBfygOP6QUP3TemyOKDgg0TLrvxwYV5cALLO7TQa7M4RytCdULpstKdpN2UPRkd3dBtbKjXczRdpy6gEDwcCoLrslWq0W/"
    "qYT6sK/8tXScZzX0aeSzlmmxp37xyk3gXYQfAgMBAAGjJTAjMAkGA1UdEwQCMAAwFgYDVR0RBA8wDYILc2VydmVyLnRlc3QwDQYJ"
    "KoZIhvcNAQELBQADggEBADv8ESeqIqCr7FQX3d38BGRHxbmbvWNe4huFG7fcJ8KAW0z40h60OY3z0qRJ+xe66kzbiChUiY2Akqy0"
    "vO9sUyL/VnU5xrQt5OGe8EeGz3MnNnZIQQLBOUgNUMq4fq045Db06HwL1sYEuaAUiCxkFNTl5ak5hUEAP64D+jTMJHMjW2EqIYye"
    "SAY2sOAb8rlCJfhxTteOzKEhmov0m1M60rtRI7ZffENwb8t1CfPQ7Lu4RqGLTfME9xOIc+8RWG2g2WGenmRRH06KfphsUtM4esMz"
    "ZdW+paPk4MsBT91I1nyO3i+t8t3HdITHRTIbHG9xFwZLoIZNXQ4trUzsYhe37H8=";

/// The same modulus with another exponent, which stands behind it.
inline constexpr const char* OtherExponentCertificate =
    "MIICzDCCAbSgAwIBAgIBATANBgkqhkiG9w0BAQsFADAWMRQwEgYDVQQDDAtzZXJ2ZXIudGVzdDAgFw0yNjExMjEwOTE1MDRaGA8y"
    "MDU2MTExNDA5MTUwNFowFjEUMBIGA1UEAwwLc2VydmVyLnRlc3QwggEgMA0GCSqGSIb3DQEBAQUAA4IBDQAwggEIAoIBAQCmNPRY"
    "YXAffu1r2FjBnzLYTnHxjXrYGXx82YeRiNbJ+M71v6tdZTTCbxQl+gIDOn5j5godY72BH708E7tsWMISn06MMDu7iqhncRzA9SOo"
    "unG2+BCeeGF/7LFKYxD5Yr/ZRwl6FqzsY0qucz7pCqOa1zB7kfERk2B7tDT+m7oLPNUFeNjKj/WtuBNfZcKoA6bOWQ2+Jiazv8ww"
    "9jfwoTeAwB3SK3cF1GW9DX58WEAD+v4tUHKZf+UEsYtFUvjKYX6eWi1WvioF2s754qtsQMGzqXXnjITQCbNsz3ZAPuZW4JdI2g80"
    "SlMXqr5jIajHyUXpErn/onWf8kBkPh1OIg9vAgEDoyUwIzAJBgNVHRMEAjAAMBYGA1UdEQQPMA2CC3NlcnZlci50ZXN0MA0GCSqG"
    "SIb3DQEBCwUAA4IBAQBG/i0XQqKYNjHbL6e98IWUZI1CcB1LF1QLSwHsbWHxEUfXrjJURUqjyvPVvVpQWHhuVWltUuo5ySlzBYDB"
    "AOdGpJ85wEluLDQ9GWfHPNCqgjWfSwia06Nt3vKGfW6oERVEyo1l6qKgg8Bb0AXuSP4lUuzDQwvyp5buq+4Sp6Cw4IYgAEuvOmC4"
    "yojL8nHEdXo7Wae76tILPWJaUDvS+hglAFB5ifcKJrGvsoafpJs70tS9VStGNGtY0nVsP4yIkCPjlBZBAreOHjldB4kmoUeM3xIm"
    "MDpeJ0bEAFRKKuPKWFd8RX020L9fGIxfDe6YG56Rbnv7sW7/Sj0sTHdj0MGO";

/// With an EC key.
inline constexpr const char* EcCertificate =
    "MIIBQTCB6KADAgECAgEBMAoGCCqGSM49BAMCMBYxFDASBgNVBAMMC3NlcnZlci50ZXN0MCAXDTI2MTEyMTA5MTUwNFoYDzIwNTYx"
    "MTE0MDkxNTA0WjAWMRQwEgYDVQQDDAtzZXJ2ZXIudGVzdDBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABLkwHc786ayrhQ1KSxvd"
    "Vhsy3wdglbAR1mFXaQrmGNFMp0wZ957Pfax1M9yhVi2ndrBTZvrK4PK4So5HzW2sZ36jJTAjMAkGA1UdEwQCMAAwFgYDVR0RBA8w"
    "DYILc2VydmVyLnRlc3QwCgYIKoZIzj0EAwIDSAAwRQIhALR+57xht3/U/0SDGZKn3VMqRjGY8bexMCFzvUX8OYRXAiB97uiVcnBN"
    "BMKhC/yqqRLjO2mK9ncQeuCPUBkPUoW7Og==";

/// The first coordinate of the EC key with the other second one, which stands behind it.
inline constexpr const char* MirroredEcCertificate =
    "MIIBQjCB6KADAgECAgEBMAoGCCqGSM49BAMCMBYxFDASBgNVBAMMC3NlcnZlci50ZXN0MCAXDTI2MTEyMTA5MTUwNFoYDzIwNTYx"
    "MTE0MDkxNTA0WjAWMRQwEgYDVQQDDAtzZXJ2ZXIudGVzdDBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABLkwHc786ayrhQ1KSxvd"
    "Vhsy3wdglbAR1mFXaQrmGNFMWLPmB2EwglSKzCNeqdJYiU+smQY1Hw1HtXG4MpJTmIGjJTAjMAkGA1UdEwQCMAAwFgYDVR0RBA8w"
    "DYILc2VydmVyLnRlc3QwCgYIKoZIzj0EAwIDSQAwRgIhALv9CMKrHEV/gPBI1Pg79kvjf6OOkStcIsm4fa6aj8FxAiEAiTX8YpDw"
    "OLCO1x/UhgmKvz2pGtoHRzmjNoZeJce6+sI=";

/// The bytes of such a text.
inline std::string DerOf(std::string_view base64) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string der;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char character : base64.substr(0, base64.find('='))) {
        bits = bits << 6 | static_cast<std::uint32_t>(alphabet.find(character));
        count += 6;
        if (count < 8) continue;
        count -= 8;
        der += static_cast<char>(bits >> count & 0xFF);
    }
    return der;
}

/// The text of some bytes, without line breaks.
inline std::string Base64Of(std::string_view der) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < der.size(); at += 3) {
        const auto byte = [&](std::size_t i) -> std::uint32_t {
            return at + i < der.size() ? static_cast<std::uint8_t>(der[at + i]) : 0;
        };
        const std::uint32_t bits = byte(0) << 16 | byte(1) << 8 | byte(2);
        for (const int shift : {18, 12, 6, 0})
            text += alphabet[bits >> shift & 63];
    }
    const std::size_t missing = (3 - der.size() % 3) % 3;
    text.replace(text.size() - missing, missing, missing, '=');
    return text;
}

}  // namespace Ombry::Tests::FixedCertificates
