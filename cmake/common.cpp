// Nothing: a target that only precompiles headers has to have a source.
