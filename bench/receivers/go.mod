module gocheck

go 1.19
