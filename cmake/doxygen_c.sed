# Makes documentation of the C header's comments: of the first for the file, of those that
# begin a line for what follows, of those behind a member or a number for it.
1s,^/\*$,/** @file,
s,^/\*$,/**,
s,^/\* \([^-]\),/** \1,
s,^\( .*[;\,0-9]\) */\* ,\1 /**< ,
