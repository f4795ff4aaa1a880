"""Tokens for the software token that are the same whoever makes them: the trial kit must not differ from build to build, and
OpenSSL's keys do. Their keys come from a fixed text, so everybody knows them; they are good for nothing but tests.

The form is that of softtoken/make_token.sh, and the tokens are those that the build makes for the tests.
"""

import hashlib
import math

PINS = "pin=1234\nsopin=87654321\nsotries=8\n"
# Serial: (firmware, tries, FIPS, keys as (bits, usage)); usage 1 signature, 2 key exchange, 3 both.
TOKENS = {
    "REAL1": ("2.0.0", 8, 0, ((1024, 1), (2048, 3), (3072, 2), (4096, 1))),
    "FIPS1": ("2.1.0", 5, 1, ((2048, 1),)),
}
SMALL_PRIMES = [n for n in range(3, 2000, 2) if all(n % d for d in range(3, int(n**0.5) + 1, 2))]
PUBLIC_EXPONENT = 65537
RSA_ENCRYPTION = "2A864886F70D010101"
SHA256_WITH_RSA = "2A864886F70D01010B"
COMMON_NAME = "550403"
KEY_USAGE = "551D0F"
# Of a key usage extension: digitalSignature and nonRepudiation, keyEncipherment and dataEncipherment, all four.
USAGE_BITS = {1: "030206C0", 2: "03020430", 3: "030204F0"}
DIGEST_SHA256 = bytes.fromhex("3031300D060960864801650304020105000420")


class Bits:
    """A stream of bytes that the seed decides alone."""

    def __init__(self, seed):
        self._seed, self._block = seed.encode(), 0

    def take(self, size):
        data = b""
        while len(data) < size:
            data += hashlib.sha256(self._seed + self._block.to_bytes(8, "big")).digest()
            self._block += 1
        return data[:size]


def is_prime(number, bits):
    if any(number % prime == 0 for prime in SMALL_PRIMES):
        return False
    odd, twos = number - 1, 0
    while odd % 2 == 0:
        odd, twos = odd // 2, twos + 1
    for _ in range(8):
        power = pow(int.from_bytes(bits.take(16), "big") + 2, odd, number)
        if power in (1, number - 1):
            continue
        for _ in range(twos - 1):
            power = power * power % number
            if power == number - 1:
                break
        else:
            return False
    return True


def prime(size, bits):
    """A prime with its two highest bits set, one less than which is coprime to the public exponent."""
    candidate = int.from_bytes(bits.take(size // 8), "big") | 3 << size - 2 | 1
    while math.gcd(candidate - 1, PUBLIC_EXPONENT) != 1 or not is_prime(candidate, bits):
        candidate += 2
    return candidate


def element(tag, *parts):
    content = b"".join(parts)
    size = len(content)
    length = bytes([size]) if size < 128 else (lambda raw: bytes([0x80 + len(raw)]) + raw)(
        size.to_bytes((size.bit_length() + 7) // 8, "big"))
    return bytes([tag]) + length + content


def sequence(*parts):
    return element(0x30, *parts)


def number(value):
    return element(2, value.to_bytes(value.bit_length() // 8 + 1, "big"))


def identifier(content):
    return element(6, bytes.fromhex(content))


def algorithm(content):
    return sequence(identifier(content), element(5))


def bit_string(content):
    return element(3, b"\0", content)


def name(text):
    return sequence(element(0x31, sequence(identifier(COMMON_NAME), element(0x0C, text.encode()))))


def key_pair(size, seed):
    """The PKCS #1 form of a private key, its modulus and its private exponent."""
    bits = Bits(seed)
    first, second = prime(size // 2, bits), prime(size // 2, bits)
    modulus = first * second
    private = pow(PUBLIC_EXPONENT, -1, math.lcm(first - 1, second - 1))
    der = sequence(*map(number, (0, modulus, PUBLIC_EXPONENT, private, first, second, private % (first - 1),
                                 private % (second - 1), pow(second, -1, first))))
    return der, modulus, private


def certificate(subject, usage, modulus, private):
    """A certificate that the key has signed itself, valid for all of this century."""
    extension = sequence(identifier(KEY_USAGE), element(1, b"\xff"), element(4, bytes.fromhex(USAGE_BITS[usage])))
    body = sequence(
        element(0xA0, number(2)), number(1), algorithm(SHA256_WITH_RSA), name(subject),
        sequence(element(0x17, b"000101000000Z"), element(0x18, b"20991231235959Z")), name(subject),
        sequence(algorithm(RSA_ENCRYPTION), bit_string(sequence(number(modulus), number(PUBLIC_EXPONENT)))),
        element(0xA3, sequence(extension)))
    digest = DIGEST_SHA256 + hashlib.sha256(body).digest()
    size = (modulus.bit_length() + 7) // 8
    padded = b"\0\1" + b"\xff" * (size - 3 - len(digest)) + b"\0" + digest
    signature = pow(int.from_bytes(padded, "big"), private, modulus).to_bytes(size, "big")
    return sequence(body, algorithm(SHA256_WITH_RSA), bit_string(signature))


def tokens():
    """All files of the tokens: their bytes by "SERIAL/NAME"."""
    files = {}
    for serial, (firmware, tries, fips, keys) in TOKENS.items():
        description = f"# A token of the software token, whose keys everybody knows.\nfirmware={firmware}\n{PINS}"
        description += f"tries={tries}\nfips={fips}\n"
        for index, (size, usage) in enumerate(keys, 1):
            der, modulus, private = key_pair(size, f"Orvane trial {serial} {index}")
            files[f"{serial}/key{index}.key"] = der
            files[f"{serial}/key{index}.crt"] = certificate(f"Orvane trial ({serial} key {index})", usage, modulus, private)
            identity = hashlib.sha256(modulus.to_bytes(size // 8, "big")).hexdigest()[:32].upper()
            description += f"key=key{index} {usage} {identity}\n"
        files[f"{serial}/token.conf"] = description.encode()
    return files
