// placeholder, replaced by the real stand-in
