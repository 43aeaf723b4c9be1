[CET-1CEST]
name = Europe/Paris
country = France
begin1 = 0 3 25-31 3 1996-2037 0 CEST-2
end1 = 0 2 25-31 10 1996-2037 0 CET-1
