#!/usr/bin/env python3
"""Brings a backup back from a folder with Python and openssl alone. The passphrase is the first line of the input:
    python3 read-local.py PLACE/MACHINE/JOB/INSTANCE RECOVERY-FILE TARGET"""
import base64, hashlib, json, os, pathlib, struct, subprocess, sys, uuid, zlib

def decrypt(cipher, key, iv, data):
    command = ["openssl", "enc", "-d", cipher, "-K", key.hex(), "-iv", iv.hex()]
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout

def tag(key, nonce, sealed, also):  # of AES-256-GCM, which openssl's command line leaves out
    hash, mask = (int.from_bytes(decrypt("-aes-256-ctr", key, iv, bytes(16)), "big") for iv in (bytes(16), nonce + bytes([0, 0, 0, 1])))
    padded = lambda text: text + bytes(-len(text) % 16)
    text, sum = padded(also) + padded(sealed) + struct.pack(">QQ", 8 * len(also), 8 * len(sealed)), 0
    for at in range(0, len(text), 16):
        factor, term, sum = sum ^ int.from_bytes(text[at : at + 16], "big"), hash, 0
        for bit in range(127, -1, -1):
            sum ^= term if factor >> bit & 1 else 0
            term = term >> 1 ^ (0xE1 << 120 if term & 1 else 0)
    return (sum ^ mask).to_bytes(16, "big")

def unpack(packages, offset, length, md5, compressed):
    packages.seek(offset)
    package = packages.read(length)
    if hashlib.md5(package).digest() != md5:
        raise ValueError("its package is damaged")
    plain = decrypt("-aes-128-cbc", key[:16], key[16:], package)
    return zlib.decompress(plain) if compressed else plain

instance, recovery, target = map(pathlib.Path, sys.argv[1:])
sealed, document = (json.loads(path.read_text("utf-8")) for path in (recovery, instance / "instance"))
salt, nonce, secrets = (base64.b64decode(sealed[name]) for name in ("salt", "nonce", "sealed"))
unlock = hashlib.scrypt(sys.stdin.readline().rstrip("\r\n").encode(), salt=salt, n=sealed["n"], r=sealed["r"], p=sealed["p"], maxmem=2**28, dklen=32)
if tag(unlock, nonce, secrets[:-16], b"dorvo recovery file 1") != secrets[-16:]:
    sys.exit("The passphrase is wrong, or the recovery file is damaged.")
opened = decrypt("-aes-256-ctr", unlock, nonce + bytes([0, 0, 0, 2]), secrets[:-16])
keys = {hashlib.md5(opened[i : i + 32]).hexdigest(): opened[i : i + 32] for i in range(1, len(opened), 32)}
key = keys.get(document["keymd5"]) or sys.exit("The backup was made with another key.")
index, at, failed = (instance / "index").read_bytes()[: document["indexsize"]], 8, 0
while at < len(index):
    size, crc, kind, compressed, *numbers, offset, length, md5, container = struct.unpack_from("<IIBBxx9IQQ16s16s", index, at)
    if zlib.crc32(index[at : at + 4] + index[at + 8 : at + size]) != crc:
        sys.exit(f"The index is damaged at byte {at}.")
    name, at = index[at + 96 : at + size].decode("utf-16le", "surrogatepass"), at + size
    path = target.joinpath(*(part.rstrip(":") for part in name.split("\\") if part not in ("", "..")))
    try:
        (path if kind == 2 else path.parent).mkdir(parents=True, exist_ok=True)
        if kind == 1:
            with open(instance.parent / str(uuid.UUID(bytes_le=container)) / "packages", "rb") as packages:
                path.write_bytes(unpack(packages, offset, length, md5, compressed))
            os.utime(path, ns=(time := ((numbers[7] << 32 | numbers[8]) - 116444736000000000) * 100, time))
        elif kind == 3:
            raise ValueError(f"it was not backed up, error {length}")
    except (OSError, ValueError, zlib.error, subprocess.SubprocessError) as error:
        print(f"{name}: {error}", file=sys.stderr)
        failed = 1
sys.exit(failed)
