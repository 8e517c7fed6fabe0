-- SPDX-License-Identifier: Apache-2.0
-- How many signatures there are.
SELECT count(*) AS signatures
FROM (
    SELECT signature
    FROM episodes
    WHERE (:country = '' OR country = :country) AND begin >= :since
        AND (:signature = '' OR signature = :signature)
    GROUP BY signature
) AS each_signature
