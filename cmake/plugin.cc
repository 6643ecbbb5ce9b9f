// The plug-in is made of the core library's objects; this unit only gives the target a source of its own.
