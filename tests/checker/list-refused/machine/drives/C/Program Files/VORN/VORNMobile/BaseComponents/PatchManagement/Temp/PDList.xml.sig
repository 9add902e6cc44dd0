not a signature
