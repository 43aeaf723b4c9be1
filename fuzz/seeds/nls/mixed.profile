[datef]
day = {a,"b,c",
  d}
k = "%(5)1|%2|%%"
[S]
k = {x{y}z}
