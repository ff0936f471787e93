# just the bind point
/
