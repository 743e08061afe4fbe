# Makes documentation of the comments behind a member or a constant.
s,^\( .*[;\,]\)  // ,\1  ///< ,
s,^\(            *\)// ,\1///< ,
