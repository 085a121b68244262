// Holds nothing: the target of what all tests include needs a source.
