"""The bytes of stored blocks, made from a name: none is kept, each can be told again."""

import random

BLOCK = 131072


def block_count(size):
    return -(-size // BLOCK)


def block_size(size, number):
    """Of the block with this number, from 1 on, in a package of `size` bytes."""
    return min(BLOCK, size - (number - 1) * BLOCK)


def content(name, size):
    """One name in ten is of zeros, which is what lost bytes often read as."""
    rng = random.Random(name)
    return bytes(size) if rng.random() < 0.1 else rng.randbytes(size)
